#pragma once

/// Sizes that transforms are quick with.
namespace Vellum::FFT {

/// The smallest product of powers of 2, 3, 5 and 7 of 2 .. 19845 that isn't below `size`; beyond these `size` itself.
int hostPaddedLength(int size);

/// `size` rounded up to a multiple of 16; if that is no power of two, the next power of two up to 1024, else a multiple
/// of 512.
int cudaPaddedLength(int size);

}  // namespace Vellum::FFT
