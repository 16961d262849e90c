#ifndef KESTREL_BENCH_BENCHCONVERSIONS_H
#define KESTREL_BENCH_BENCHCONVERSIONS_H

namespace KestrelBench
{

/// Converts another, tiny kernel in both directions, so that the next conversion starts from scratch: the assembler and
/// the disassembler remember their last conversion.
void ForgetConversions();

} // namespace KestrelBench

#endif
