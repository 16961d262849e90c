#include "tools/kestrel/command/CommandTable.h"

#include "tools/kestrel/command/Commands.h"

namespace KestrelTool
{

namespace
{

const char* const s_pszRunning = "Running";
const char* const s_pszBreakpoints = "Breakpoints";
const char* const s_pszText = "The kernel's text";
const char* const s_pszValues = "Values of a work-item";
const char* const s_pszDispatch = "The whole dispatch";
const char* const s_pszPrograms = "Programs under kestrel exec";
const char* const s_pszOther = "Settings and the rest";

} // namespace

// Commands of two words that share their first stand together.
const SCommand g_Commands[] = {
    {"run", "r", "", s_pszRunning, "Launch the kernel and run to the first breakpoint, or to its end.",
     "The launch's arguments are written again. An open session ends first. At the kernel's end its outputs are "
     "compared with what the launch file expects, and written to the files that it names.",
     "break 21\nrun", DoRun, false, ECompletion::Nothing},
    {"start", "", "", s_pszRunning, "Launch the kernel and stop before its first instruction.",
     "No register has a value yet.", "start", DoStart, false, ECompletion::Nothing},
    {"continue", "c fg", "[N]", s_pszRunning, "Run to the next breakpoint, or to the kernel's end.",
     "With a number, run to the N-th stop at a breakpoint.", "break 21\nrun\ncontinue", DoContinue, true,
     ECompletion::Nothing},
    {"step", "s", "[-focus] [N]", s_pszRunning, "Go to the next line of the source, or N times; go into functions.",
     "The session stops before the first instruction of a line when any work-item comes there. A loop within one line "
     "is passed over. A stop shows the line that is executed next, and how many work-items are active. In a kernel "
     "without source lines, step executes one instruction, as stepi does. With -focus it passes over stops in which "
     "the work-item in focus takes no part: it runs until that work-item's line changes, or the kernel ends.",
     "@opencl_c/game_of_life\nstart\nworkitem 3\nstep -focus 2\nstep", DoStep, true, ECompletion::Nothing},
    {"next", "n", "[-focus] [N]", s_pszRunning, "As step, but a called function runs to its end.",
     "A breakpoint in the function still stops. -focus works as for step.", "@call_chain\nbreak 14\nrun\nnext", DoNext,
     true, ECompletion::Nothing},
    {"stepi", "si", "[N]", s_pszRunning, "Execute one instruction, or N; go into functions that are called.",
     "A stop shows the line that is executed next, and how many work-items are active: those that took part in the "
     "last step.",
     "@opencl_c/game_of_life\nbreak game_of_life.cl:20\nrun\nstepi", DoStepInstruction, true, ECompletion::Nothing},
    {"nexti", "ni", "[N]", s_pszRunning, "As stepi, but a called function runs to its end.", "",
     "@call_chain\nbreak 14\nrun\nnexti", DoNextInstruction, true, ECompletion::Nothing},
    {"finish", "fin", "", s_pszRunning, "Run until the function returns, and stop after its call.", "",
     "@call_chain\nbreak add_three\nrun\nfinish", DoFinish, false, ECompletion::Nothing},
    {"until", "u", "[PLACE]", s_pszRunning, "Run to a line after this one; at the end of a loop, run out of the loop.",
     "With a place, it does what advance does.", "@loop_trip_count\ntbreak 20\nrun\nuntil", DoUntil, true,
     ECompletion::Place},
    {"advance", "", "PLACE", s_pszRunning, "Run to a place, or until the function returns if that comes first.", "",
     "start\nadvance 32", DoAdvance, false, ECompletion::Place},
    {"reverse-step", "rs", "[N]", s_pszRunning, "Go back to the start of a source line, or N times.",
     "If the stop is inside a line, this is the line's own start, otherwise that of the line before. In a kernel "
     "without source lines it goes back one instruction, as reverse-stepi does.",
     "break 21\nrun\nreverse-step", DoReverseStep, true, ECompletion::Nothing},
    {"reverse-next", "rn", "[N]", s_pszRunning, "As reverse-step, but go back over a called function as a whole.", "",
     "@call_chain\nbreak 16\nrun\nreverse-next", DoReverseNext, true, ECompletion::Nothing},
    {"reverse-stepi", "rsi", "[N]", s_pszRunning, "Go back one instruction, or N.",
     "Registers and memory have the values that they had there, since each stop is computed anew from the launch.",
     "@opencl_c/game_of_life\nbreak game_of_life.cl:20\nrun\nreverse-stepi", DoReverseStepInstruction, true,
     ECompletion::Nothing},
    {"reverse-nexti", "rni", "[N]", s_pszRunning, "As reverse-stepi, but go back over a called function as a whole.",
     "", "@call_chain\nbreak 16\nrun\nreverse-nexti", DoReverseNextInstruction, true, ECompletion::Nothing},
    {"reverse-continue", "rc", "[N]", s_pszRunning,
     "Go back to the previous stop at a breakpoint, or to the first stop.", "",
     "break 13\nbreak 32\nrun\ncontinue\nreverse-continue", DoReverseContinue, true, ECompletion::Nothing},
    {"goto", "", "N", s_pszRunning, "Go to a stop of this launch that info stops lists, forward or back.",
     "The steps and runs that led there are done again, from the first stop on if necessary.",
     "@opencl_c/game_of_life\nstart\nnext 3\nnext\ngoto 2\ninfo stops", DoGoTo, false, ECompletion::Nothing},
    {"info stops", "", "", s_pszRunning, "List the stops of this launch in the order of execution.",
     "After going back, the later stops stay in the list until the launch goes on another way. The setting limit says "
     "how many are listed, around the present one.",
     "@opencl_c/game_of_life\nstart\nnext\nnext\nreverse-next\ninfo stops", DoInfoStops, false, ECompletion::Nothing},
    {"kill", "k", "", s_pszRunning, "End the session.",
     "The rest of the kernel isn't debugged, and its outputs aren't compared. Under kestrel exec, the program is "
     "ended.",
     "start\nkill", DoKill, false, ECompletion::Nothing},

    {"break", "b br", "[PLACE] [if CONDITION]", s_pszBreakpoints,
     "Stop before a line, before a function, or at the kernel's entry.",
     "A place is a line's number, FILE:LINE of the source, *LINE of the IL, +N or -N lines from here, a function's "
     "name, func and its label, or entry. Without a place it is the instruction of the stop. A number is a line of the "
     "source, counted from 1; in a kernel without source it is a line of the IL, counted from 0. list shows these "
     "numbers. A line without code stands for the next one that has some. In a function that is inlined several times, "
     "the breakpoint stops in each of these places. Under kestrel exec, a function's name or FILE:LINE stops in all "
     "launches that have it, and *LINE in all launches of the kernel.\n"
     "A condition is an expression. any, all and count() ask the active work-items, or with /a all work-items. Without "
     "one of these, the condition holds if it holds for any active work-item. Where no work-item comes to a "
     "breakpoint, it is passed over.",
     "break 21 if any r3.x > 60\nbreak 33 if count(r5.x == 0) == 1\nrun\ncontinue", DoBreak, false, ECompletion::Place},
    {"tbreak", "tb", "[PLACE] [if CONDITION]", s_pszBreakpoints, "As break, for one stop only.", "",
     "tbreak 33\nrun\ninfo breakpoints", DoTemporaryBreak, false, ECompletion::Place},
    {"watch", "", "PLACE", s_pszBreakpoints, "Stop before writes to an element of a buffer, or to other memory.",
     "A separate run of the kernel finds which instructions of which work-items write it. The session then stops "
     "before each of them, with that work-item in focus, also when it goes back. At a stop a place may also be an "
     "expression of the source that has an address, such as tile[3] or *p, or a word at localN:ADDRESS or "
     "private:ADDRESS. It is that of the work-item in focus, or of its group. A watch is a breakpoint: condition, "
     "ignore, commands and delete work on it. Under kestrel exec it ends with its launch.",
     "watch out[5]\nrun\nprint r5.x", DoWatch, false, ECompletion::Nothing},
    {"rwatch", "", "PLACE", s_pszBreakpoints, "As watch, for reads.", "", "@opencl_c/game_of_life\nrwatch in[3]\nrun",
     DoReadWatch, false, ECompletion::Nothing},
    {"awatch", "", "PLACE", s_pszBreakpoints, "As watch, for reads and writes.", "An atomic does both.",
     "@opencl_c/reduction\nawatch result[1]\nrun\ncontinue", DoAccessWatch, false, ECompletion::Nothing},
    {"stop on", "", "CHECK", s_pszBreakpoints, "Stop before the kernel does what a check reports.",
     "CHECK is memory, race, init, nan, barrier or alignment, as for kestrel check. A separate run of the kernel finds "
     "which instructions of which work-items do it. The session then stops before each of them, with that work-item in "
     "focus, also when it goes back. In a loop it stops where the access goes to the same place; for init and nan, the "
     "first time that one of the work-items comes there. It is a breakpoint, as a watch is.",
     "@opencl_c/crc32\nstop on alignment\nrun\nreverse-continue", DoStopOn, false, ECompletion::Nothing},
    {"condition", "", "ID [CONDITION]", s_pszBreakpoints, "Give a breakpoint a condition; without one, remove it.", "",
     "break 33\ncondition 1 all r5.x < 100\nrun", DoCondition, false, ECompletion::Register},
    {"ignore", "", "ID N", s_pszBreakpoints, "Pass over a breakpoint's next N hits.", "",
     "@loop_trip_count\nbreak 18\nignore 1 2\nrun\ninfo breakpoints", DoIgnore, false, ECompletion::Nothing},
    {"commands", "", "[ID]", s_pszBreakpoints, "Set the commands that are executed at each stop at a breakpoint.",
     "The commands are the lines that follow, up to a line with end. Without a number they are for the newest "
     "breakpoint. An empty list removes them. They may include commands that run the kernel on, such as continue.",
     "break 21\ncommands 1\nprint r3.x\ncontinue\nend\nrun", DoBreakpointCommands, false, ECompletion::Nothing},
    {"enable", "", "[ID...]", s_pszBreakpoints, "Enable breakpoints; without a number, all of them.", "",
     "break 21\ndisable\nenable 1\ninfo breakpoints", DoEnable, false, ECompletion::Nothing},
    {"disable", "dis", "[ID...]", s_pszBreakpoints, "Disable breakpoints; without a number, all of them.",
     "A disabled breakpoint is passed over.", "break 21\ndisable 1\nrun", DoDisable, false, ECompletion::Nothing},
    {"delete", "d", "[ID...]", s_pszBreakpoints, "Delete breakpoints; without a number, all of them.", "",
     "break 21\nbreak 33\ndelete 1\ninfo breakpoints", DoDelete, false, ECompletion::Nothing},
    {"save breakpoints", "", "FILE", s_pszBreakpoints, "Write the breakpoints to a file that the command source reads.",
     "Their conditions and commands are written too.",
     "break 21 if any r3.x > 60\nsave breakpoints stops\nshell cat stops", DoSaveBreakpoints, false, ECompletion::File},
    {"catch launch", "", "[KERNEL] [N]", s_pszPrograms, "Stop at the entry of launches of the program.",
     "Without arguments it stops at each launch, with a number at the N-th one. With a kernel's name it stops at each "
     "launch of that kernel, with both at its N-th. Launches are counted from 1.",
     "$ catch-launch", DoCatchLaunch, false, ECompletion::Nothing},
    {"finish-launch", "", "", s_pszPrograms, "Let the program go on, without further stops in the launch that waits.",
     "The program's own launch runs now; what was debugged was a replay of it.", "$ finish-launch", DoFinishLaunch,
     false, ECompletion::Nothing},
    {"capture", "", "[-o FOLDER] [--emit-c] [KERNEL] [N | N-M]", s_pszPrograms,
     "Write the launch that waits, or later ones, as launch files.",
     "Without arguments it writes the launch that waits, with program and contents, to the folder captured; -o names "
     "another folder. With a kernel or numbers, counted from 1, it writes those launches as they come, whether they "
     "stop or not. --emit-c adds a program in C that makes the launch on any OpenCL platform.",
     "$ capture", DoCapture, false, ECompletion::File},
    {"info breakpoints", "b br", "", s_pszBreakpoints, "List the breakpoints with their conditions and hits.", "",
     "break 21 if any r3.x > 60\ntbreak 33\nrun\ninfo breakpoints", DoInfoBreakpoints, false, ECompletion::Nothing},
    {"info launches", "", "", s_pszPrograms, "List the program's launches so far.",
     "Each line has the time since the first launch, the arguments and the size.", "$ info-launches", DoInfoLaunches,
     false, ECompletion::Nothing},
    {"info kernels", "", "", s_pszPrograms, "List the kernels that the program has launched, and how often.", "",
     "$ info-kernels", DoInfoKernels, false, ECompletion::Nothing},
    {"info programs", "", "", s_pszPrograms, "List the OpenCL programs that the program has made.",
     "A program passes its text to OpenCL without a file name. If a *.cl file with the same text is found, the OpenCL "
     "program gets its name. The search covers the working folder, the program's folder and the folders of files that "
     "the program was given.",
     "$ info-programs", DoInfoPrograms, false, ECompletion::Nothing},
    {"info registers", "r reg", "[REGISTER...]", s_pszValues, "Show the registers of the work-item in focus.",
     "Without names, all that have a value are shown. Formats are those of print.",
     "break 24\nrun\ninfo registers r0 r1 r3 r4", DoInfoRegisters, false, ECompletion::Register},
    {"info locals", "l", "", s_pszValues, "Show the local variables in scope, for the work-item in focus.",
     "They are those of the innermost function, or of the one that frame has selected. The kernel has to be in OpenCL "
     "C and built with -g. A variable without a value at this stop shows <optimized out>.",
     "@opencl_c/game_of_life\nbreak game_of_life.cl:20\nrun\ninfo locals", DoInfoLocals, false, ECompletion::Nothing},
    {"info args", "a", "", s_pszValues, "Show the parameters of the innermost function, for the work-item in focus.",
     "", "@opencl_c/game_of_life\nbreak game_of_life.cl:20\nrun\ninfo args", DoInfoArgs, false, ECompletion::Nothing},
    {"info memory", "mem", "[/x]", s_pszValues, "List the buffers that the kernel can access.",
     "With /x, also show the addresses that they have in the kernel.", "break 16\nrun\ninfo memory", DoInfoMemory,
     false, ECompletion::Nothing},
    {"info kernel", "k", "", s_pszText, "Show the kernel's arguments and functions.", "", "@call_chain\ninfo kernel",
     DoInfoKernel, false, ECompletion::Nothing},
    {"info dispatch", "d", "", s_pszDispatch, "Show the dispatch's sizes and where it stands.", "",
     "start\ninfo dispatch", DoInfoDispatch, false, ECompletion::Nothing},
    {"info threads", "t", "", s_pszDispatch, "List the work-groups, and how many work-items of each are active.",
     "Consecutive groups with as many active work-items share a line; * marks the one of the group in focus.",
     "@local_reduction\nbreak 16\nrun\ninfo threads", DoInfoThreads, false, ECompletion::Nothing},
    {"info line", "", "[PLACE]", s_pszText, "Show which lines of the IL belong to a line of the source.",
     "A place is as for break; without one, it is the line of the stop.", "@opencl_c/game_of_life\ninfo line 20",
     DoInfoLine, false, ECompletion::Place},
    {"info source", "", "", s_pszText, "Name the files of the source.", "", "@opencl_c/game_of_life\ninfo source",
     DoInfoSource, false, ECompletion::Nothing},
    {"info symbol", "", "ADDRESS", s_pszValues, "Show which buffer or other memory an address is in.",
     "An address is an expression, such as a pointer of the source.",
     "@opencl_c/game_of_life\nbreak 20\nrun\ninfo symbol in + 3", DoInfoSymbol, false, ECompletion::Nothing},
    {"info faults", "", "", s_pszDispatch, "List the faults of work-items since the launch.",
     "Faults are accesses outside all buffers, and barriers that a part of the group missed. The software platform "
     "records them.",
     "run\ninfo faults", DoInfoFaults, false, ECompletion::Nothing},
    {"info display", "", "", s_pszValues, "List the expressions that are shown at every stop.", "",
     "display r3.x\ninfo display", DoInfoDisplay, false, ECompletion::Nothing},

    {"list", "l", "[PLACE | FIRST,LAST]", s_pszText, "Show lines of the source around the stop or a place.",
     "=> marks the line that is executed next, * a breakpoint. list again, or Enter, shows the lines that follow. In a "
     "kernel without source lines it shows the IL, as it does for *LINE.",
     "@opencl_c/game_of_life\nbreak 20\nrun\nlist\nlist 3,6", DoList, true, ECompletion::Place},
    {"disassemble", "disas", "[/s] [PLACE]", s_pszText, "Show the IL of the whole function around the stop or a place.",
     "With /s each line of the source is shown before its instructions.", "@opencl_c/transpose\nstart\ndisassemble/s",
     DoDisassemble, false, ECompletion::Place},
    {"backtrace", "bt", "", s_pszText, "List the functions that the stop is in, the innermost first.",
     "Inlined functions are listed too. The arguments are those of the work-item in focus.",
     "@opencl_c/game_of_life\nbreak row_word\nrun\nbacktrace", DoBacktrace, false, ECompletion::Nothing},
    {"frame", "f", "[N]", s_pszText, "Select a function of the backtrace, or show which one is selected.",
     "Variables are looked up in it, and list shows its lines. When the kernel goes on, the innermost function is "
     "selected again.",
     "@opencl_c/game_of_life\nbreak row_word\nrun\nframe 1\ninfo locals", DoFrame, false, ECompletion::Nothing},
    {"up", "", "[N]", s_pszText, "Select the function that calls this one.", "",
     "@opencl_c/game_of_life\nbreak row_word\nrun\nup", DoUp, true, ECompletion::Nothing},
    {"down", "", "[N]", s_pszText, "Select the function that this one calls.", "",
     "@opencl_c/game_of_life\nbreak row_word\nrun\nup\ndown", DoDown, true, ECompletion::Nothing},

    {"print", "p inspect", "[/FORMAT] EXPRESSION", s_pszValues,
     "Show a variable of the source, a register, or an expression, for the work-item in focus.",
     "Expressions are C over the variables of the source that are in scope. They may have all operators that set no "
     "value, among them ?:, casts, sizeof, &, *, ->, . and []; components of vectors (v.xy, v.s3, v.lo, v.odd); "
     "vectors as (float4)(a, b, c, d); convert_ and as_ with a type; and built-in functions such as get_global_id, "
     "min, clamp, dot and sqrt. Pointers are followed into global, constant, local and private memory. Types and "
     "conversions are those of C. A variable that has no value at the stop shows <optimized out>. Several expressions "
     "are separated by commas.\n"
     "Formats: f float, d int, u unsigned, x hex, t binary, c character, g pairs of components as doubles, q pairs as "
     "64-bit ints, a pairs as addresses in the kernel's buffers (out+0x10). Without a format, a variable is shown as "
     "its type says, and each component of a register as the float or int that it looks like.\n"
     "Components are those of registers (r3.x, x1[0].w), literals (l0.x), constant buffers (cb1[2].y) and ids "
     "(vTidInGrp.x). Where a variable has the same name, write $ before it ($r3.x). A component beside a float is read "
     "as a float, any other as an int. int(), uint(), float(), and for pairs long(r2.xy) and double(r2.xy), say how to "
     "read it. Two NaNs of registers are equal; whether a variable is a NaN is tested by x == nan.\n"
     "An argument's name, or argN, is the value of a value argument (scale). With an index it is an element of the "
     "argument's buffer (out[3], in[r0.x]). An element that doesn't exist is an error, but &&, || and ?: don't read "
     "what they don't need.\n"
     "Of a work-item itself there are $item (linear index), $x $y $z (without the global offset), $gx $gy $gz (group), "
     "$lx $ly $lz (in its group) and $active.",
     "break 24\nrun\nprint r3\nprint/a r2.xy\nprint r3.x * 2 + 1\nprint l0.x + vTidInGrp.x\nprint out[r0.x]\nprint "
     "count(r3.x > 30)",
     DoPrint, true, ECompletion::Register},
    {"display", "", "[/FORMAT] EXPRESSION", s_pszValues, "Print an expression at every stop.",
     "Several expressions, separated by commas, become a display each.", "display r3.x\nbreak 21\nrun\nstep", DoDisplay,
     false, ECompletion::Register},
    {"undisplay", "", "[ID]", s_pszValues, "Remove a display; without a number, all of them.", "",
     "display r3.x\nundisplay 1\ninfo display", DoUndisplay, false, ECompletion::Nothing},
    {"ptype", "pt", "EXPRESSION | TYPE", s_pszValues, "Show the type of an expression, with a structure's members.", "",
     "@opencl_c/game_of_life\nbreak game_of_life.cl:20\nrun\nptype in", DoPrintType, false, ECompletion::Nothing},
    {"whatis", "", "EXPRESSION | TYPE", s_pszValues, "Name the type of an expression.", "",
     "@opencl_c/game_of_life\nbreak game_of_life.cl:20\nrun\nwhatis middle", DoWhatIs, false, ECompletion::Nothing},
    {"x", "", "[/NFU] PLACE", s_pszValues, "Show memory as the kernel has it at this stop.",
     "N is a count. F is d, u, x or f for numbers, s for a string or i for instructions. U is b (1 byte), h (2), w (4) "
     "or g (8).\n"
     "A place in a buffer is the argument's name or argN, with [ELEMENT] or +BYTES after it if needed, and optionally "
     "& before it; or uavN:ADDRESS. private:ADDRESS is private memory of the work-item in focus. Local memory of its "
     "group is a local argument's name, local:ADDRESS, or localN:ADDRESS for the block that is declared as "
     "dcl_lds_id(N); localN@GROUP:ADDRESS is that of another group. An element's number may be an expression. An "
     "address may be a register (r3.x, r2.xy for 64 bits). Enter shows what follows.",
     "break 34\nrun\nx/8 out\nx/2xw out[4]\nx uav10:r2.xy", DoExamine, true, ECompletion::Nothing},

    {"mask", "m", "", s_pszDispatch, "Draw which work-items are active.",
     "Each cell is a work-item. In a large dispatch it is a block of them, shaded by how many are active. Active "
     "work-items are those that took part in the last step: at the end of an if, those that were in it.",
     "break 21\nrun\nmask", DoMask, false, ECompletion::Nothing},
    {"grid", "g", "[/a] EXPRESSION", s_pszDispatch, "Draw values as shades, from the smallest to the largest.",
     "A cell of several work-items shows their mean; ! marks a cell with a NaN. With /a all work-items count, "
     "otherwise only the active ones.",
     "break 32\nrun\ngrid/a r5.x", DoGrid, false, ECompletion::Register},
    {"stats", "", "[/a] EXPRESSION", s_pszDispatch,
     "Show minimum, maximum, mean, NaNs, distinct values and a histogram of the active work-items.",
     "With /a all work-items count.", "break 32\nrun\nstats/a r5.x", DoStats, false, ECompletion::Register},
    {"view", "", "[PORT | off]", s_pszDispatch, "Serve a page for a browser that shows and moves this session.",
     "The answer is the page's address, on a free port or on the given one. The prompt goes on as before. The page "
     "follows the prompt's commands, and the prompt tells where the page's moves lead. The page ends with view off or "
     "with the session. With -batch there is no page, since nobody gives commands.",
     "= (kestrel) view\nhttp://127.0.0.1:40913/6d1c0f5e71a3b82c94d0e6f72b58a1c3/", DoView, false, ECompletion::Nothing},
    {"where", "", "[/a] [CONDITION]", s_pszDispatch, "List the work-items for which a condition holds.",
     "Neighbours are shown as ranges. With /a all work-items are asked, otherwise only the active ones. Without a "
     "condition, it does what backtrace does.",
     "break 33\nrun\nwhere r5.x > 100", DoWhere, false, ECompletion::Register},
    {"who", "", "BUFFER[NUMBER]", s_pszDispatch,
     "Show which work-items write and read an element, where, in which order and with which values.",
     "The answer comes from a separate run of the launch, in which work-groups run one after the other. The session "
     "stays where it is. Between two barriers other orders are possible too.",
     "who out[5]", DoWho, false, ECompletion::Nothing},
    {"diff", "", "[/FORMAT] EXPRESSION", s_pszDispatch, "Compare a value with what it was at the last stop.",
     "After a single step, any value can be compared. Otherwise only registers and memory that were read at the last "
     "stop can be.",
     "break 21\nrun\nstep\ndiff r3.x", DoDiff, false, ECompletion::Register},
    {"workitem", "wi thread", "[INDEX | X Y Z]", s_pszDispatch,
     "Move the focus to a work-item, active or not, and show it.",
     "Without an argument, the work-item in focus is shown. Coordinates count from 0, without the global offset.",
     "@dispatch_3d\nstart\nworkitem 3 1 0\nworkitem 0", DoWorkItem, false, ECompletion::Nothing},

    {"set", "", "SETTING VALUE", s_pszOther, "Change a setting; show lists them.", "",
     "set format hex\nbreak 24\nrun\nprint r3", DoSet, false, ECompletion::Setting},
    {"show", "", "[SETTING]", s_pszOther, "Show settings.", "", "show", DoShow, false, ECompletion::Setting},
    {"source", "so", "FILE", s_pszOther, "Execute the commands of a file, up to the first that fails.", "",
     "break 21\nsave breakpoints stops\ndelete\nsource stops\ninfo breakpoints", DoSource, false, ECompletion::File},
    {"help", "h", "[COMMAND]", s_pszOther, "List the commands, or explain one.", "", "help tbreak", DoHelp, false,
     ECompletion::Command},
    {"define", "", "NAME", s_pszOther, "Define a command that executes other commands.",
     "Its commands are the lines that follow, up to a line with end. In them, $arg0, $arg1 and so on stand for the "
     "words after the command.",
     "define look\nstep\nprint $arg0\nend\nbreak 21\nrun\nlook r3.x", DoDefine, false, ECompletion::Nothing},
    {"alias", "", "[NAME = COMMAND]", s_pszOther, "Give a command another name, or list such names.", "",
     "alias pf = print/f\nbreak 24\nrun\npf r3.x", DoAlias, false, ECompletion::Nothing},
    {"apropos", "", "WORD", s_pszOther, "List the commands whose help contains a word.", "", "apropos mask", DoApropos,
     false, ECompletion::Nothing},
    {"shell", "", "COMMAND", s_pszOther, "Execute a shell command, and show what it prints.", "", "shell echo hello",
     DoShell, false, ECompletion::File},
    {"pwd", "", "", s_pszOther, "Show the working folder.", "", "pwd", DoPwd, false, ECompletion::Nothing},
    {"cd", "", "[FOLDER]", s_pszOther, "Change the working folder; without one, to the home folder.", "",
     "shell mkdir results\ncd results", DoCd, false, ECompletion::File},
    {"quit", "q exit", "[N]", s_pszOther, "End the session and the program.", "A number is the exit code of kestrel.",
     "quit", DoQuit, false, ECompletion::Nothing},
};
const size_t g_nCommands = sizeof(g_Commands) / sizeof(g_Commands[0]);

} // namespace KestrelTool
