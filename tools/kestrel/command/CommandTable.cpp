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
     "The arguments are written anew. A session that is open ends. At the kernel's end its outputs are compared with "
     "what "
     "the launch file expects, and written to the files that it names.",
     "break 21\nrun", DoRun, false, ECompletion::Nothing},
    {"start", "", "", s_pszRunning, "Launch the kernel and stop in front of its first instruction.",
     "No register has a value yet.", "start", DoStart, false, ECompletion::Nothing},
    {"continue", "c fg", "[N]", s_pszRunning, "Run to the next breakpoint, or to the kernel's end.",
     "With a number, to the N-th stop at a breakpoint.", "break 21\nrun\ncontinue", DoContinue, true,
     ECompletion::Nothing},
    {"step", "s", "[-focus] [N]", s_pszRunning, "Go to the next line of the source, or N times; go into functions.",
     "A stop shows the instruction that is executed next, and how many work-items are active. A line is stopped at in "
     "front of its first instruction, when any work-item comes there; a loop within one line is passed over. In a "
     "kernel without lines of a source it executes one instruction, as stepi. With -focus stops that the work-item in "
     "focus has no part in are passed: it goes on until that one's line changes, or the kernel ends.",
     "@opencl_c/game_of_life\nstart\nworkitem 3\nstep -focus 2\nstep", DoStep, true, ECompletion::Nothing},
    {"next", "n", "[-focus] [N]", s_pszRunning, "As step, but a called function runs to its end.",
     "A breakpoint in the function stops there. -focus is as for step.", "@call_chain\nbreak 14\nrun\nnext", DoNext,
     true, ECompletion::Nothing},
    {"stepi", "si", "[N]", s_pszRunning, "Execute one instruction, or N; go into functions that are called.",
     "A stop shows the line that is executed next, and how many work-items are active: those that took part in the "
     "last step.",
     "@opencl_c/game_of_life\nbreak game_of_life.cl:20\nrun\nstepi", DoStepInstruction, true, ECompletion::Nothing},
    {"nexti", "ni", "[N]", s_pszRunning, "As stepi, but a called function runs to its end.", "",
     "@call_chain\nbreak 14\nrun\nnexti", DoNextInstruction, true, ECompletion::Nothing},
    {"finish", "fin", "", s_pszRunning, "Run to the end of the function, and to behind its call.", "",
     "@call_chain\nbreak add_three\nrun\nfinish", DoFinish, false, ECompletion::Nothing},
    {"until", "u", "[PLACE]", s_pszRunning, "Run to a line behind this one: out of a loop at its end.",
     "With a place, as advance.", "@loop_trip_count\ntbreak 20\nrun\nuntil", DoUntil, true, ECompletion::Place},
    {"advance", "", "PLACE", s_pszRunning, "Run to a place, or to behind the function's call if that comes first.", "",
     "start\nadvance 32", DoAdvance, false, ECompletion::Place},
    {"reverse-step", "rs", "[N]", s_pszRunning, "Go back to where a line of the source begins, or N times.",
     "That of the stop, if it is inside the line, or the one before. In a kernel without lines of a source it goes "
     "back one instruction, as reverse-stepi.",
     "break 21\nrun\nreverse-step", DoReverseStep, true, ECompletion::Nothing},
    {"reverse-next", "rn", "[N]", s_pszRunning, "As reverse-step, but a called function is gone back over as a whole.",
     "", "@call_chain\nbreak 16\nrun\nreverse-next", DoReverseNext, true, ECompletion::Nothing},
    {"reverse-stepi", "rsi", "[N]", s_pszRunning, "Go back one instruction, or N.",
     "Registers read as they did there. Memory that the kernel has written does too, since each stop is computed anew "
     "from "
     "the launch.",
     "@opencl_c/game_of_life\nbreak game_of_life.cl:20\nrun\nreverse-stepi", DoReverseStepInstruction, true,
     ECompletion::Nothing},
    {"reverse-nexti", "rni", "[N]", s_pszRunning,
     "As reverse-stepi, but a called function is gone back over as a whole.", "",
     "@call_chain\nbreak 16\nrun\nreverse-nexti", DoReverseNextInstruction, true, ECompletion::Nothing},
    {"reverse-continue", "rc", "[N]", s_pszRunning, "Go back to the last breakpoint, or to the first stop.", "",
     "break 13\nbreak 32\nrun\ncontinue\nreverse-continue", DoReverseContinue, true, ECompletion::Nothing},
    {"goto", "", "N", s_pszRunning, "Go to a stop of this launch that info stops lists, forward or back.",
     "The moves that led there are made once more, if need be from the first stop on.",
     "@opencl_c/game_of_life\nstart\nnext 3\nnext\ngoto 2\ninfo stops", DoGoTo, false, ECompletion::Nothing},
    {"info stops", "", "", s_pszRunning, "List the stops of this launch in the order of execution.",
     "Those after the present one are there after a way back, until the launch goes on another way. As many are listed "
     "as limit says, around the present one.",
     "@opencl_c/game_of_life\nstart\nnext\nnext\nreverse-next\ninfo stops", DoInfoStops, false, ECompletion::Nothing},
    {"kill", "k", "", s_pszRunning, "End the session.", "The kernel runs out undebugged; its outputs aren't looked at.",
     "start\nkill", DoKill, false, ECompletion::Nothing},

    {"break", "b br", "[PLACE] [if CONDITION]", s_pszBreakpoints,
     "Stop in front of a line, in front of a function, or at the kernel's entry.",
     "A place is a line's number, FILE:LINE of the source, *LINE of the IL, +N or -N lines from here, a function's "
     "name, "
     "func and its label, or entry; none is the instruction of the stop. A number is a line of the source, counted "
     "from "
     "1, or in a kernel without one a line of the IL, counted from 0, as list shows them. A line without code stands "
     "for "
     "the next one that has some. In a function that is inlined more than once a breakpoint stops in each of these "
     "places. Under kestrel exec a function's name or FILE:LINE stops in all launches that have it, and *LINE in all "
     "launches of the kernel.\n"
     "A condition is an expression. any, all and count() ask the active work-items, with /a all of them; without one "
     "of these the condition asks whether any active work-item fulfils it. A breakpoint is passed where no work-item "
     "comes to it.",
     "break 21 if any r3.x > 60\nbreak 33 if count(r5.x == 0) == 1\nrun\ncontinue", DoBreak, false, ECompletion::Place},
    {"tbreak", "tb", "[PLACE] [if CONDITION]", s_pszBreakpoints, "As break, for one stop only.", "",
     "tbreak 33\nrun\ninfo breakpoints", DoTemporaryBreak, false, ECompletion::Place},
    {"watch", "", "PLACE", s_pszBreakpoints, "Stop in front of writes to an element of a buffer, or to other memory.",
     "A plain run of its own tells which instructions of which work-items write it; the session stops where one of "
     "them "
     "is next, with that work-item in focus, and going back does too. At a stop a place may also be what of the source "
     "has an address, as tile[3] or *p, or a word at localN:ADDRESS or private:ADDRESS, of the work-item in focus or "
     "its "
     "group. A watch is a breakpoint: condition, ignore, commands "
     "and delete work on it; under kestrel exec it ends with its launch.",
     "watch out[5]\nrun\nprint r5.x", DoWatch, false, ECompletion::Nothing},
    {"rwatch", "", "PLACE", s_pszBreakpoints, "As watch, for reads.", "", "@opencl_c/game_of_life\nrwatch in[3]\nrun",
     DoReadWatch, false, ECompletion::Nothing},
    {"awatch", "", "PLACE", s_pszBreakpoints, "As watch, for reads and writes.", "An atomic does both.",
     "@opencl_c/reduction\nawatch result[1]\nrun\ncontinue", DoAccessWatch, false, ECompletion::Nothing},
    {"stop on", "", "CHECK", s_pszBreakpoints, "Stop in front of what the kernel does wrong.",
     "CHECK is memory, race, init, nan, barrier or alignment, as kestrel check has them. A run of its own finds which "
     "instructions of which work-items do it; the session stops where one of them is next, with that work-item in "
     "focus, "
     "and going back does too. In a loop that is where the access goes to the same place; of init and nan it is the "
     "first "
     "time that one of the work-items comes there. It is a breakpoint as watch is.",
     "@opencl_c/crc32\nstop on alignment\nrun\nreverse-continue", DoStopOn, false, ECompletion::Nothing},
    {"condition", "", "ID [CONDITION]", s_pszBreakpoints, "Give a breakpoint a condition, or take it away.", "",
     "break 33\ncondition 1 all r5.x < 100\nrun", DoCondition, false, ECompletion::Register},
    {"ignore", "", "ID N", s_pszBreakpoints, "Pass over a breakpoint's next N hits.", "",
     "@loop_trip_count\nbreak 18\nignore 1 2\nrun\ninfo breakpoints", DoIgnore, false, ECompletion::Nothing},
    {"commands", "", "[ID]", s_pszBreakpoints, "Say what is done at each stop at a breakpoint; lines, and end.",
     "Without a number, at the newest. No lines take them away again. A command that goes on is fine.",
     "break 21\ncommands 1\nprint r3.x\ncontinue\nend\nrun", DoBreakpointCommands, false, ECompletion::Nothing},
    {"enable", "", "[ID...]", s_pszBreakpoints, "Let breakpoints stop again; all without a number.", "",
     "break 21\ndisable\nenable 1\ninfo breakpoints", DoEnable, false, ECompletion::Nothing},
    {"disable", "dis", "[ID...]", s_pszBreakpoints, "Let breakpoints be passed; all without a number.", "",
     "break 21\ndisable 1\nrun", DoDisable, false, ECompletion::Nothing},
    {"delete", "d", "[ID...]", s_pszBreakpoints, "Take breakpoints away; all without a number.", "",
     "break 21\nbreak 33\ndelete 1\ninfo breakpoints", DoDelete, false, ECompletion::Nothing},
    {"save breakpoints", "", "FILE", s_pszBreakpoints, "Write the breakpoints to a file that source reads again.",
     "With their conditions and commands.", "break 21 if any r3.x > 60\nsave breakpoints stops\nshell cat stops",
     DoSaveBreakpoints, false, ECompletion::File},
    {"catch launch", "", "[KERNEL] [N]", s_pszPrograms, "Stop at the entry of launches of the program.",
     "Of each launch, of the N-th one, of each launch of a kernel, or of its N-th. Counted from 1.", "$ catch-launch",
     DoCatchLaunch, false, ECompletion::Nothing},
    {"finish-launch", "", "", s_pszPrograms, "Let the program go on, without a stop in the launch that waits.",
     "The program's own launch runs now; what was debugged was a replay of it.", "$ finish-launch", DoFinishLaunch,
     false, ECompletion::Nothing},
    {"capture", "", "[-o FOLDER] [--emit-c] [KERNEL] [N | N-M]", s_pszPrograms,
     "Write the launch that waits as a launch file, or launches to come.",
     "Alone it writes the launch that waits, with program and contents, into the folder captured or another. With a "
     "kernel or numbers, counted from 1, it writes those launches as they come, whether they stop or not. --emit-c "
     "adds a program in C that makes the launch on any OpenCL platform.",
     "$ capture", DoCapture, false, ECompletion::File},
    {"info breakpoints", "b br", "", s_pszBreakpoints, "List the breakpoints with their conditions and hits.", "",
     "break 21 if any r3.x > 60\ntbreak 33\nrun\ninfo breakpoints", DoInfoBreakpoints, false, ECompletion::Nothing},
    {"info launches", "", "", s_pszPrograms, "List the program's launches so far.",
     "With their times since the first one, arguments and sizes.", "$ info-launches", DoInfoLaunches, false,
     ECompletion::Nothing},
    {"info kernels", "", "", s_pszPrograms, "List the kernels that the program has launched, and how often.", "",
     "$ info-kernels", DoInfoKernels, false, ECompletion::Nothing},
    {"info programs", "", "", s_pszPrograms, "List the OpenCL programs that the program has made.",
     "A program hands its text over without a name. It is called by the file *.cl with the same text if one lies in "
     "the "
     "working folder, or in that of the program or of a file that it was given.",
     "$ info-programs", DoInfoPrograms, false, ECompletion::Nothing},
    {"info registers", "r reg", "[REGISTER...]", s_pszValues, "Show the registers of the work-item in focus.",
     "All that have a value, or those that are named. Formats as for print.",
     "break 24\nrun\ninfo registers r0 r1 r3 r4", DoInfoRegisters, false, ECompletion::Register},
    {"info locals", "l", "", s_pszValues,
     "Show the variables of the source that are in scope, of the work-item in focus.",
     "Those of the innermost function, for kernels in OpenCL C that are built with -g. One that has no value at this "
     "stop says <optimized out>.",
     "@opencl_c/game_of_life\nbreak game_of_life.cl:20\nrun\ninfo locals", DoInfoLocals, false, ECompletion::Nothing},
    {"info args", "a", "", s_pszValues, "Show the parameters of the innermost function, of the work-item in focus.", "",
     "@opencl_c/game_of_life\nbreak game_of_life.cl:20\nrun\ninfo args", DoInfoArgs, false, ECompletion::Nothing},
    {"info memory", "mem", "[/x]", s_pszValues, "List the buffers that the kernel reaches.",
     "With /x also the addresses at which the kernel has them.", "break 16\nrun\ninfo memory", DoInfoMemory, false,
     ECompletion::Nothing},
    {"info kernel", "k", "", s_pszText, "Show the kernel's arguments and functions.", "", "@call_chain\ninfo kernel",
     DoInfoKernel, false, ECompletion::Nothing},
    {"info dispatch", "d", "", s_pszDispatch, "Show the dispatch's sizes and where it stands.", "",
     "start\ninfo dispatch", DoInfoDispatch, false, ECompletion::Nothing},
    {"info threads", "t", "", s_pszDispatch, "List the work-groups, and how many work-items of each are active.",
     "Groups in a row that have as many count as one line; * marks the one in focus.",
     "@local_reduction\nbreak 16\nrun\ninfo threads", DoInfoThreads, false, ECompletion::Nothing},
    {"info line", "", "[PLACE]", s_pszText, "Say which lines of the IL a line of the source became.",
     "A place as for break; without one, the line of the stop.", "@opencl_c/game_of_life\ninfo line 20", DoInfoLine,
     false, ECompletion::Place},
    {"info source", "", "", s_pszText, "Name the files of the source.", "", "@opencl_c/game_of_life\ninfo source",
     DoInfoSource, false, ECompletion::Nothing},
    {"info symbol", "", "ADDRESS", s_pszValues, "Say what an address is in.",
     "An address is an expression, as a pointer of the source.",
     "@opencl_c/game_of_life\nbreak 20\nrun\ninfo symbol in + 3", DoInfoSymbol, false, ECompletion::Nothing},
    {"info faults", "", "", s_pszDispatch, "List what work-items did and shouldn't have.",
     "Accesses to no buffer and barriers that part of a group missed, since the launch, as the software platform "
     "records them.",
     "run\ninfo faults", DoInfoFaults, false, ECompletion::Nothing},
    {"info display", "", "", s_pszValues, "List what is shown at every stop.", "", "display r3.x\ninfo display",
     DoInfoDisplay, false, ECompletion::Nothing},

    {"list", "l", "[PLACE | FIRST,LAST]", s_pszText, "Show lines of the source around the stop or a place.",
     "=> marks the line that is executed next, * a breakpoint. Again, or Enter, it shows the lines after those. Of a "
     "kernel without lines of a source it shows the IL, as it does for *LINE.",
     "@opencl_c/game_of_life\nbreak 20\nrun\nlist\nlist 3,6", DoList, true, ECompletion::Place},
    {"disassemble", "disas", "[/s] [PLACE]", s_pszText, "Show the IL of the whole function around the stop or a place.",
     "With /s each line of the source stands before what was made of it.", "@opencl_c/transpose\nstart\ndisassemble/s",
     DoDisassemble, false, ECompletion::Place},
    {"backtrace", "bt", "", s_pszText, "List the functions that the stop is in, the innermost first.",
     "Functions that are inlined count. Their arguments are those of the work-item in focus.",
     "@opencl_c/game_of_life\nbreak row_word\nrun\nbacktrace", DoBacktrace, false, ECompletion::Nothing},
    {"frame", "f", "[N]", s_pszText, "Look at one of these functions, or show which one is looked at.",
     "Variables are looked up in it, and list shows its lines. It is the innermost one again when the kernel goes on.",
     "@opencl_c/game_of_life\nbreak row_word\nrun\nframe 1\ninfo locals", DoFrame, false, ECompletion::Nothing},
    {"up", "", "[N]", s_pszText, "Look at the function that calls this one.", "",
     "@opencl_c/game_of_life\nbreak row_word\nrun\nup", DoUp, true, ECompletion::Nothing},
    {"down", "", "[N]", s_pszText, "Look at the function that this one calls.", "",
     "@opencl_c/game_of_life\nbreak row_word\nrun\nup\ndown", DoDown, true, ECompletion::Nothing},

    {"print", "p inspect", "[/FORMAT] EXPRESSION", s_pszValues,
     "Show a variable of the source, a register, or an expression, for the work-item in focus.",
     "Expressions are C over the variables of the source that are in scope: all operators but those that set values, "
     "?:, casts, sizeof, &, *, ->, ., [], components of vectors (v.xy, v.s3, v.lo, v.odd), (float4)(a, b, c, d), "
     "convert_ and as_ with a type, and built-in functions as get_global_id, min, clamp, dot and sqrt. Pointers are "
     "followed into global, constant, local and private memory. Types and conversions are C's; a variable that has no "
     "value at the stop says <optimized out>. Several expressions stand with commas between them.\n"
     "Formats: f float, d int, u unsigned, x hex, t binary, c character, g pairs of components as doubles, q pairs as "
     "64-bit ints, a pairs as addresses in the kernel's buffers (out+0x10); without one, a variable as its type says, "
     "and each component of a register as the float or int that it looks like.\n"
     "Components of registers are r3.x, x1[0].w, literals (l0.x), constant buffers (cb1[2].y) and ids (vTidInGrp.x); "
     "with $ in front ($r3.x) where a variable has the name. An argument's name, or argN, stands for a value "
     "argument (scale) or with an index for an element of its buffer (out[3], in[r0.x]). A work-item's own are "
     "$item (linear), $x $y $z (without the global offset), $gx $gy $gz (group), $lx $ly $lz (in its group) "
     "and $active. Components are read as floats beside a float and as ints otherwise; int(), uint(), float(), and for "
     "pairs long(r2.xy) and double(r2.xy), say it outright. An element that isn't there is an error, but &&, || and ?: "
     "don't ask for what they don't need. Two NaNs of registers are equal, and x == nan asks for one of a variable.",
     "break 24\nrun\nprint r3\nprint/a r2.xy\nprint r3.x * 2 + 1\nprint l0.x + vTidInGrp.x\nprint out[r0.x]\nprint "
     "count(r3.x > 30)",
     DoPrint, true, ECompletion::Register},
    {"display", "", "[/FORMAT] EXPRESSION", s_pszValues, "Print an expression at every stop.",
     "Several expressions with commas between them are as many displays.", "display r3.x\nbreak 21\nrun\nstep",
     DoDisplay, false, ECompletion::Register},
    {"undisplay", "", "[ID]", s_pszValues, "End a display, or all.", "", "display r3.x\nundisplay 1\ninfo display",
     DoUndisplay, false, ECompletion::Nothing},
    {"ptype", "pt", "EXPRESSION | TYPE", s_pszValues, "Show the type of an expression, with a structure's members.", "",
     "@opencl_c/game_of_life\nbreak game_of_life.cl:20\nrun\nptype in", DoPrintType, false, ECompletion::Nothing},
    {"whatis", "", "EXPRESSION | TYPE", s_pszValues, "Name the type of an expression.", "",
     "@opencl_c/game_of_life\nbreak game_of_life.cl:20\nrun\nwhatis middle", DoWhatIs, false, ECompletion::Nothing},
    {"x", "", "[/NFU] PLACE", s_pszValues, "Show memory as the kernel has it at this stop.",
     "N is a count; F is d, u, x or f; U is b (1 byte), h (2), w (4) or g (8). A place is a buffer argument by its "
     "name or as "
     "argN, with [ELEMENT] or +BYTES behind it and perhaps & in front; uavN:ADDRESS; private:ADDRESS for private "
     "memory of the work-item in focus; or a local argument's name, local:ADDRESS or localN:ADDRESS (the block that "
     "is declared as dcl_lds_id(N)) for local memory of its group, localN@GROUP:ADDRESS for another group's. "
     "An element's number may be an expression. An address may be a register (r3.x, r2.xy for 64 bits). Enter shows "
     "what follows.",
     "break 34\nrun\nx/8 out\nx/2xw out[4]\nx uav10:r2.xy", DoExamine, true, ECompletion::Nothing},

    {"mask", "m", "", s_pszDispatch, "Draw which work-items are active.",
     "One cell a work-item, or for a large dispatch a block of them, shaded by how many of it are active. Active is "
     "who "
     "took part in the last step: at the end of an if those that were in it.",
     "break 21\nrun\nmask", DoMask, false, ECompletion::Nothing},
    {"grid", "g", "[/a] EXPRESSION", s_pszDispatch, "Draw values as shades, from the least to the largest.",
     "A cell of several work-items shows their mean; ! marks one with a NaN. With /a all work-items count, else the "
     "active.",
     "break 32\nrun\ngrid/a r5.x", DoGrid, false, ECompletion::Register},
    {"stats", "", "[/a] EXPRESSION", s_pszDispatch,
     "Minimum, maximum, mean, NaNs, distinct values and a histogram of the active work-items.", "",
     "break 32\nrun\nstats/a r5.x", DoStats, false, ECompletion::Register},
    {"view", "", "[PORT | off]", s_pszDispatch, "Serve a page for a browser that shows and moves this session.",
     "The answer is the page's address, on a free port or on one of your choice. The prompt goes on as before: the "
     "page "
     "follows its commands, and prompt and page both tell what the other one's moves lead to. view off ends the page; "
     "so does the end of the session. There is no page where nobody can give commands, as with -batch.",
     "", DoView, false, ECompletion::Nothing},
    {"where", "", "[/a] [CONDITION]", s_pszDispatch, "List the work-items for which a condition holds.",
     "Without a condition, as backtrace. Neighbours are shown as ranges. With /a all work-items are asked, else the "
     "active.",
     "break 33\nrun\nwhere r5.x > 100", DoWhere, false, ECompletion::Register},
    {"who", "", "BUFFER[NUMBER]", s_pszDispatch,
     "Show which work-items write and read an element, where, in which order and with which values.",
     "From a plain run of the launch of its own, in which work-groups run one after the other; the session stays where "
     "it is. Between two barriers another order may be as good.",
     "who out[5]", DoWho, false, ECompletion::Nothing},
    {"diff", "", "[/FORMAT] EXPRESSION", s_pszDispatch, "Compare a value with what it was at the last stop.",
     "After a single step this goes for everything; else for what was looked at there, be it in registers or in "
     "memory.",
     "break 21\nrun\nstep\ndiff r3.x", DoDiff, false, ECompletion::Register},
    {"workitem", "wi thread", "[INDEX | X Y Z]", s_pszDispatch,
     "Move the focus to a work-item, active or not; show it.", "Coordinates count from 0, without the global offset.",
     "@dispatch_3d\nstart\nworkitem 3 1 0\nworkitem 0", DoWorkItem, false, ECompletion::Nothing},

    {"set", "", "SETTING VALUE", s_pszOther, "Change a setting; show lists them.", "",
     "set format hex\nbreak 24\nrun\nprint r3", DoSet, false, ECompletion::Setting},
    {"show", "", "[SETTING]", s_pszOther, "Show settings.", "", "show", DoShow, false, ECompletion::Setting},
    {"source", "so", "FILE", s_pszOther, "Do the commands of a file; the first that fails ends it.", "",
     "break 21\nsave breakpoints stops\ndelete\nsource stops\ninfo breakpoints", DoSource, false, ECompletion::File},
    {"help", "h", "[COMMAND]", s_pszOther, "Say what commands there are, or what one does.", "", "help tbreak", DoHelp,
     false, ECompletion::Command},
    {"define", "", "NAME", s_pszOther, "Make a command of others; lines, and end.",
     "$arg0, $arg1 and so on stand in the lines for the words behind the command.",
     "define look\nstep\nprint $arg0\nend\nbreak 21\nrun\nlook r3.x", DoDefine, false, ECompletion::Nothing},
    {"alias", "", "[NAME = COMMAND]", s_pszOther, "Give a command another name, or list such names.", "",
     "alias pf = print/f\nbreak 24\nrun\npf r3.x", DoAlias, false, ECompletion::Nothing},
    {"apropos", "", "WORD", s_pszOther, "List the commands whose help has a word.", "", "apropos mask", DoApropos,
     false, ECompletion::Nothing},
    {"shell", "", "COMMAND", s_pszOther, "Do a command of the shell, and show what it prints.", "", "shell echo hello",
     DoShell, false, ECompletion::File},
    {"pwd", "", "", s_pszOther, "Show the working folder.", "", "pwd", DoPwd, false, ECompletion::Nothing},
    {"cd", "", "[FOLDER]", s_pszOther, "Change the working folder; without one, to the home folder.", "",
     "shell mkdir results\ncd results", DoCd, false, ECompletion::File},
    {"quit", "q exit", "[N]", s_pszOther, "End the session and the program.",
     "With a number, that is the program's exit code.", "quit", DoQuit, false, ECompletion::Nothing},
};
const size_t g_nCommands = sizeof(g_Commands) / sizeof(g_Commands[0]);

} // namespace KestrelTool
