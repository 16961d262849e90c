#!/usr/bin/env python3
"""Checks that the library of built-in functions defines each function that clang declares.

clang's header of OpenCL C gives the prototypes, with the extensions of the devices. Each is called once in a
kernel that is compiled as users' sources are, with clang's built-in table of declarations, and the functions that
stay undefined must be defined in the library's bitcode.

usage: CheckBuiltinNames.py CLANG LLVM_NM TRIPLE BITCODE
"""

import re
import subprocess
import sys

EXTENSIONS = ["cl_khr_fp64", "cl_khr_byte_addressable_store", "cl_khr_3d_image_writes",
              "cl_khr_global_int32_base_atomics", "cl_khr_global_int32_extended_atomics",
              "cl_khr_local_int32_base_atomics", "cl_khr_local_int32_extended_atomics"]
# printf is handled by the driver.
ELSEWHERE = {"printf"}


def clang(arguments, source):
    done = subprocess.run(arguments, input=source, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        sys.exit(done.stderr[:4000])
    return done.stdout


def prototypes(text):
    """(name, parameters) of each function that the header declares."""
    found = []
    for match in re.finditer(r"[\w* ]*?__attribute__\(\(overloadable\)\)[^;{}]*?\b(\w+)\(([^;()]*)\)[^;]*;", text):
        found.append((match.group(1), [p.strip() for p in match.group(2).split(",") if p.strip() not in ("", "void")]))
    return found


def call(number, name, parameters):
    """A function that passes its own parameters on."""
    own = []
    for index, parameter in enumerate(parameters):
        # Drops the name, if there is one; the words before it are the type.
        words = re.sub(r"([*])", r" \1 ", parameter).split()
        if len(words) > 1 and re.fullmatch(r"\w+", words[-1]) and words[-1] not in KEPT and not is_type(words[-1]):
            words.pop()
        own.append(" ".join(words) + f" a{index}")
    names = ", ".join(f"a{i}" for i in range(len(parameters)))
    return f"void use{number}({', '.join(own) or 'void'}) {{ {name}({names}); }}\n"


KEPT = {"const", "volatile", "restrict"}


def is_type(word):
    return re.fullmatch(r"(u?(char|short|int|long)|float|double|half|bool|unsigned|signed|size_t|event_t|sampler_t|"
                        r"ptrdiff_t|cl_mem_fence_flags|image\w+_t|__global|__local|__private|__constant|global|local)"
                        r"\d*", word) is not None


def main():
    compiler, nm, triple, bitcode = sys.argv[1:5]
    extensions = "-all," + ",".join("+" + e for e in EXTENSIONS)
    base = [compiler, "-target", triple, "-x", "cl", "-cl-std=CL1.2", "-Xclang", "-cl-ext=" + extensions]
    resources = clang([compiler, "-print-resource-dir"], "").strip()
    header = clang(base + ["-cl-no-stdinc", "-E", "-P", resources + "/include/opencl-c.h"], "")
    declared = [p for p in prototypes(header) if p[0] not in ELSEWHERE]
    source = "".join(call(n, *p) for n, p in enumerate(declared))
    code = clang(base + ["-Xclang", "-finclude-default-header", "-Xclang", "-fdeclare-opencl-builtins", "-w",
                         "-Xclang", "-disable-llvm-passes", "-S", "-emit-llvm", "-o", "-", "-"], source)
    called = set(re.findall(r"^declare .*?@(\w+)\(", code, re.MULTILINE))
    defined = {line.split()[-1] for line in clang([nm, "--defined-only", bitcode], "").splitlines() if " T " in line}
    missing = sorted(n for n in called - defined if not n.startswith("llvm."))
    print(f"{triple}: {len(declared)} prototypes, {len(called)} functions called, {len(missing)} missing")
    for name in missing:
        print("missing:", name)
    if len(declared) < 9000 or len(called) < 9000:
        sys.exit("too few functions were found: the header reads differently")
    sys.exit(1 if missing else 0)


if __name__ == "__main__":
    main()
