#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdint>
#include <random>
#include <vector>

namespace ViewTint::Host::Testing {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// By zlib's functions for streams, which nothing stands in for.
Bytes inflated(const Bytes& stream, std::size_t bytes) {
    Bytes result(bytes + 1);
    z_stream state{};
    inflateInit(&state);
    state.next_in = const_cast<Bytef*>(stream.data());
    state.avail_in = static_cast<uInt>(stream.size());
    state.next_out = result.data();
    state.avail_out = static_cast<uInt>(result.size());
    EXPECT_EQ(inflate(&state, Z_FINISH), Z_STREAM_END);
    EXPECT_EQ(state.total_out, bytes);
    inflateEnd(&state);
    result.resize(bytes);
    return result;
}

Bytes deflated(const Bytes& bytes, int level) {
    uLongf size = compressBound(bytes.size());
    Bytes stream(size);
    EXPECT_EQ(compress2(stream.data(), &size, bytes.data(), bytes.size(), level), Z_OK);
    stream.resize(size);
    return stream;
}

TEST(Deflate, ZlibReadsWhatStandsInItsPlaceWrites) {
    std::mt19937 random(3);
    for (const std::size_t size : {0u, 1u, 1000u, 300'000u})
        for (const unsigned values : {2u, 256u}) {  // of which the latter get no smaller
            Bytes bytes(size);
            for (auto& byte : bytes)
                byte = static_cast<std::uint8_t>(random() % values);
            for (const int level : {Z_DEFAULT_COMPRESSION, 0, 1, 4, 9}) {
                const Bytes stream = deflated(bytes, level);
                EXPECT_EQ(inflated(stream, size), bytes) << size << ' ' << level;
                Bytes back(size + 1);
                uLongf got = back.size();
                ASSERT_EQ(uncompress(back.data(), &got, stream.data(), stream.size()), Z_OK);
                back.resize(got);
                EXPECT_EQ(back, bytes);
            }
        }
}

TEST(Deflate, FailuresAreTold) {
    const Bytes bytes(5000, 7);
    Bytes stream = deflated(bytes, 4), room(4999);
    uLongf size = room.size();
    EXPECT_EQ(uncompress(room.data(), &size, stream.data(), stream.size()), Z_BUF_ERROR);
    stream.back() ^= 1;  // in the checksum
    room.resize(5000);
    size = room.size();
    EXPECT_EQ(uncompress(room.data(), &size, stream.data(), stream.size()), Z_DATA_ERROR);
    size = 4;
    EXPECT_EQ(compress(room.data(), &size, bytes.data(), bytes.size()), Z_BUF_ERROR);
}

}  // namespace
}  // namespace ViewTint::Host::Testing
