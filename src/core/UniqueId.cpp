#include "core/UniqueId.h"

#include <array>
#include <cstdint>
#include <random>

namespace brassline {

namespace {

// One generator per thread, seeded from the operating system's entropy: uids are made by
// the hundred thousand during imports, and a system call for each would cost more than
// the rest of the work.
std::mt19937_64& generator() {
    thread_local std::mt19937_64 engine = [] {
        std::random_device device;
        std::seed_seq seed{device(), device(), device(), device(), device(), device(), device(), device()};
        return std::mt19937_64(seed);
    }();
    return engine;
}

}  // namespace

std::string uniqueBase64String() {
    std::array<uint8_t, 16> bytes{};
    std::mt19937_64& engine = generator();
    uint64_t high = engine();
    uint64_t low = engine();
    for (int i = 0; i < 8; ++i) {
        bytes[static_cast<std::size_t>(i)] = static_cast<uint8_t>(high >> (56 - 8 * i));
        bytes[static_cast<std::size_t>(8 + i)] = static_cast<uint8_t>(low >> (56 - 8 * i));
    }
    // RFC 4122, section 4.4: version 4 in the high nibble of byte 6, variant 10 in byte 8.
    bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3F) | 0x80);

    static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string text;
    text.reserve(22);
    // 16 bytes are five groups of three plus one byte left over, which gives two characters
    // once the "==" padding is dropped.
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        uint32_t group = (uint32_t{bytes[i]} << 16) | (uint32_t{bytes[i + 1]} << 8) | bytes[i + 2];
        text += kAlphabet[(group >> 18) & 0x3F];
        text += kAlphabet[(group >> 12) & 0x3F];
        text += kAlphabet[(group >> 6) & 0x3F];
        text += kAlphabet[group & 0x3F];
    }
    uint32_t last = uint32_t{bytes[i]} << 16;
    text += kAlphabet[(last >> 18) & 0x3F];
    text += kAlphabet[(last >> 12) & 0x3F];
    return text;
}

}  // namespace brassline
