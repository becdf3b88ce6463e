#pragma once

/// Marks a function that uses more of the processor than the rest of the library: UTILSLIB_USES_PROCESSOR("avx2").
/// Visual C++ needs no mark, clang does in its place too.
#if defined(__GNUC__) || defined(__clang__)
#define UTILSLIB_USES_PROCESSOR(features) __attribute__((target(features)))
#else
#define UTILSLIB_USES_PROCESSOR(features)
#endif

namespace UtilsLib::Platform
{

/// Whether the processor has SSSE3.
bool ProcessorHasSsse3();
/// Whether the processor has AVX2 and the system saves its registers.
bool ProcessorHasAvx2();

} // namespace UtilsLib::Platform
