#ifndef KESTREL_BENCH_BENCHCONVERSIONS_H
#define KESTREL_BENCH_BENCHCONVERSIONS_H

namespace KestrelBench
{

/// Converts another, tiny kernel to and fro, so that what is converted next is new as a whole: the
/// assembler and the disassembler remember what they converted last.
void ForgetConversions();

} // namespace KestrelBench

#endif
