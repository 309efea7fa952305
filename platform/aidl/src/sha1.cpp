#include "sha1.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace host::aidl {
namespace {

using State = std::array<uint32_t, 5>;
constexpr size_t kBlock = 64;

std::array<uint32_t, 80> Expand(std::string_view block) {
    std::array<uint32_t, 80> words{};
    for (size_t i = 0; i < kBlock; ++i) {
        words[i / 4] = words[i / 4] << 8 | static_cast<unsigned char>(block[i]);
    }
    for (size_t i = 16; i < words.size(); ++i) {
        words[i] = std::rotl(words[i - 3] ^ words[i - 8] ^ words[i - 14] ^ words[i - 16], 1);
    }
    return words;
}

uint32_t Mix(size_t round, uint32_t b, uint32_t c, uint32_t d) {
    if (round < 20) return ((b & c) | (~b & d)) + 0x5a827999u;
    if (round < 40) return (b ^ c ^ d) + 0x6ed9eba1u;
    if (round < 60) return ((b & c) | (b & d) | (c & d)) + 0x8f1bbcdcu;
    return (b ^ c ^ d) + 0xca62c1d6u;
}

void AddBlock(std::string_view block, State* state) {
    const std::array<uint32_t, 80> words = Expand(block);
    auto [a, b, c, d, e] = *state;
    for (size_t i = 0; i < words.size(); ++i) {
        const uint32_t next = std::rotl(a, 5) + Mix(i, b, c, d) + e + words[i];
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = next;
    }
    const State added = {a, b, c, d, e};
    for (size_t i = 0; i < added.size(); ++i)
        (*state)[i] += added[i];
}

}  // namespace

std::string Sha1(std::string_view text) {
    std::string padded(text);
    padded += '\x80';
    while (padded.size() % kBlock != kBlock - 8)
        padded += '\0';
    const uint64_t bits = uint64_t{text.size()} * 8;
    for (int shift = 56; shift >= 0; shift -= 8)
        padded += static_cast<char>(bits >> shift);
    State state = {0x67452301u, 0xefcdab89u, 0x98badcfeu, 0x10325476u, 0xc3d2e1f0u};
    for (size_t at = 0; at < padded.size(); at += kBlock) {
        AddBlock(std::string_view(padded).substr(at, kBlock), &state);
    }
    std::string out;
    for (uint32_t word : state) {
        for (int shift = 28; shift >= 0; shift -= 4)
            out += "0123456789abcdef"[word >> shift & 15];
    }
    return out;
}

}  // namespace host::aidl
