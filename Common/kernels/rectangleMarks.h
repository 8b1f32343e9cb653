// Host form of kernels that ask whether any pixel of a rectangle is marked. 32 rows of a column become the bits of one
// integer, so that a step of the search looks at 32 pixels of each lane at a time.
#pragma once

#include "compute/kernel/hostForm.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// Runs pieces of K, whose first image is read in a rectangle: O = K::ofMarked where any pixel there is marked, else
/// K::ofUnmarked. Unless K::marksDecide says that this always holds, blocks with a pixel for which K::markDecides is
/// false take the body.
template <class K, Counts T, class V>
class RectangleMarks {
public:
    VT_FN void run(const Launch& launch) {
        const ImageParameters& range = launch.imageParameters[0];
        const int spanX = range.rangeMax[0] - range.rangeMin[0];
        const int spanY = range.rangeMax[1] - range.rangeMin[1];
        const bool inReach = spanX >= 0 && spanX <= mostSpan && spanY >= 0 && spanY <= mostSpan;
        if (!inReach || launch.x1 - launch.x0 < width) return runRows<K, T, V, Reach::unit>(launch);
        const int rows = mostRows - spanY;
        const int blocks = (launch.x1 - launch.x0 + mostColumns - 1) / mostColumns;
        const int columns = ((launch.x1 - launch.x0 + blocks - 1) / blocks + width - 1) / width * width;
        for (int c = launch.c0; c < launch.c1; ++c)
            for (int y = launch.y0; y < launch.y1; y += rows)
                for (int x = launch.x0; x < launch.x1; x += columns) {
                    Launch block = launch;
                    block.y0 = y;
                    block.y1 = y + rows < launch.y1 ? y + rows : launch.y1;
                    block.x1 = x + columns < launch.x1 ? x + columns : launch.x1;
                    block.x0 = block.x1 - x >= width ? x : block.x1 - width;
                    block.c0 = c;
                    block.c1 = c + 1;
                    runBlock(block);
                }
    }

private:
    static constexpr int width = LaneTraits<V>::width;
    using I = IntOf<V>;
    static constexpr int rowsPerWord = 32;
    static constexpr int mostWords = 8;
    static constexpr int mostRows = mostWords * rowsPerWord;
    static constexpr int mostSpan = 192;
    static constexpr int mostColumns = 512;
    /// Rows that are read side by side, so that a word is loaded and stored less often.
    static constexpr int rowsAbreast = 8;

    /// The marks of a block and of what lies in reach of it: bit i of word w in place x is row 32 w + i, column x, from
    /// the lower left pixel in reach.
    struct Marks {
        int words;
        int of[mostWords][mostColumns + mostSpan + 2 * width];
    };

    __attribute__((noinline)) static void runBlock(const Launch& block) {
        const ImageParameters& range = block.imageParameters[0];
        const int spanX = range.rangeMax[0] - range.rangeMin[0];
        const int spanY = range.rangeMax[1] - range.rangeMin[1];
        const int columns = block.x1 - block.x0;
        Marks marks;
        marks.words = wordsFor(block.y1 - block.y0 + spanY);
        if (!collect(block, marks)) return runRows<K, T, V, Reach::unit>(block);
        for (int x = 0; x < columns + spanX; x += width)
            gatherRows(marks, x, spanY);
        for (int w = 0; w < wordsFor(block.y1 - block.y0); ++w)
            gatherColumns(marks.of[w], columns, spanX);
        write(block, marks);
    }

    VT_FN int wordsFor(int rows) { return (rows + rowsPerWord - 1) / rowsPerWord; }

    /// False where a pixel's mark alone doesn't decide.
    VT_FN bool collect(const Launch& block, Marks& marks) {
        const ImageArgument& a = block.images[0];
        const ImageParameters& range = block.imageParameters[0];
        const int from = block.x0 + range.rangeMin[0];
        const int to = block.x1 + range.rangeMax[0];
        const int begin = from > a.x0 ? from : a.x0;
        const int end = to < a.x1 ? to : a.x1;
        auto undecided = V(0) != V(0);
        for (int row = 0; row < marks.words * rowsPerWord; row += rowsAbreast) {
            const float* rows[rowsAbreast];
            for (int i = 0; i < rowsAbreast; ++i) {
                const int y = clampTo(block.y0 + range.rangeMin[1] + row + i, a.y0, a.y1 - 1);
                rows[i] = addressIn(a, begin, y, block.c0);
            }
            int* words = marks.of[row / rowsPerWord] + (begin - from);
            const int firstBit = row % rowsPerWord;
            for (int x = 0; x < end - begin; x += width) {
                const int at = x + width <= end - begin ? x : end - begin - width;
                I bits = firstBit ? loadInts(words + at) : I(0);
#pragma GCC unroll 8
                for (int i = 0; i < rowsAbreast; ++i) {
                    const V value = load<V>(rows[i] + at, 1);
                    bits = bits | select(K::marked(value), I(1 << i) << firstBit, I(0));
                    if constexpr (!K::marksDecide) undecided = undecided | !K::markDecides(value);
                }
                storeInts(bits, words + at);
            }
        }
        if (any(undecided)) return false;
        for (int w = 0; w < marks.words; ++w) {  // beyond the image's sides its edge
            int* words = marks.of[w];
            for (int x = from; x < begin; ++x)
                words[x - from] = words[begin - from];
            for (int x = end; x < to; ++x)
                words[x - from] = words[end - 1 - from];
        }
        return true;
    }

    /// Each bit becomes the union of itself and the `span` bits above it, by doubling.
    VT_FN void gatherRows(Marks& marks, int x, int span) {
        I words[mostWords + 1];
        for (int w = 0; w < marks.words; ++w)
            words[w] = loadInts(marks.of[w] + x);
        for (int gathered = 1, step; gathered <= span; gathered += step) {
            step = gathered <= span + 1 - gathered ? gathered : span + 1 - gathered;
            const int skipped = step / rowsPerWord;
            const int shift = step % rowsPerWord;
            words[marks.words] = I(0);
            for (int w = 0; w + skipped < marks.words; ++w) {
                // What comes in from the left repeats bit 31, which is in reach of all those bits.
                I above = words[w + skipped] >> shift;
                if (shift) above = above | words[w + skipped + 1] << (rowsPerWord - shift);
                words[w] = words[w] | above;
            }
        }
        for (int w = 0; w < marks.words; ++w)
            storeInts(words[w], marks.of[w] + x);
    }

    /// The same with the words to the right, for the first `columns`.
    VT_FN void gatherColumns(int* words, int columns, int span) {
        for (int gathered = 1, step; gathered <= span; gathered += step) {
            step = gathered <= span + 1 - gathered ? gathered : span + 1 - gathered;
            const int needed = columns + span + 1 - gathered - step;
            for (int x = 0; x < needed; x += width)
                storeInts(loadInts(words + x) | loadInts(words + x + step), words + x);
        }
    }

    VT_FN void write(const Launch& block, const Marks& marks) {
        const int columns = block.x1 - block.x0;
        for (int y = block.y0; y < block.y1; ++y) {
            const int row = y - block.y0;
            const int* words = marks.of[row / rowsPerWord];
            const I bit = I(1) << (row % rowsPerWord);
            float* target = addressIn(block.images[1], block.x0, y, block.c0);
            for (int x = 0; x < columns; x += width) {
                const int at = x + width <= columns ? x : columns - width;
                store(select((loadInts(words + at) & bit) != I(0), V(K::ofMarked), V(K::ofUnmarked)), target + at, 1);
            }
        }
    }

    VT_FN I loadInts(const int* p) {
        I ints;
        __builtin_memcpy(&ints, p, sizeof ints);
        return ints;
    }
    VT_FN void storeInts(I ints, int* p) {
        __builtin_memcpy(p, &ints, sizeof ints);
    }
};

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
