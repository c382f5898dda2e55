#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>

#include "core/UniqueId.h"

namespace brassline {
namespace {

// Decodes the URL-safe base64 alphabet by hand, independent of the encoder.
std::vector<uint8_t> decodeUidBytes(const std::string& text) {
    auto value = [](char c) -> int {
        if (c >= 'A' && c <= 'Z')
            return c - 'A';
        if (c >= 'a' && c <= 'z')
            return c - 'a' + 26;
        if (c >= '0' && c <= '9')
            return c - '0' + 52;
        if (c == '-')
            return 62;
        if (c == '_')
            return 63;
        return -1;
    };
    std::vector<uint8_t> bytes;
    uint32_t buffer = 0;
    int bits = 0;
    for (char c : text) {
        int v = value(c);
        if (v < 0) {
            return {};
        }
        buffer = (buffer << 6) | static_cast<uint32_t>(v);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes.push_back(static_cast<uint8_t>(buffer >> bits));
        }
    }
    return bytes;
}

TEST(UniqueIdTest, IsAVersion4UUIDInUrlSafeBase64) {
    for (int i = 0; i < 1000; ++i) {
        std::string uid = uniqueBase64String();
        SCOPED_TRACE(uid);
        ASSERT_EQ(uid.size(), 22u);
        std::vector<uint8_t> bytes = decodeUidBytes(uid);
        // 22 characters carry 132 bits: 16 bytes and 4 padding bits that must be zero.
        ASSERT_EQ(bytes.size(), 16u);
        EXPECT_EQ(bytes[6] >> 4, 4) << "version";
        EXPECT_EQ(bytes[8] >> 6, 2) << "variant";
        static constexpr std::string_view kLastCharacters = "AQgw";  // 0, 16, 32, 48.
        EXPECT_NE(kLastCharacters.find(uid.back()), std::string_view::npos);
    }
}

TEST(UniqueIdTest, HundredThousandAreDistinctAndUseTheWholeAlphabet) {
    std::unordered_set<std::string> seen;
    std::set<char> characters;
    for (int i = 0; i < 100000; ++i) {
        std::string uid = uniqueBase64String();
        characters.insert(uid.begin(), uid.end());
        ASSERT_TRUE(seen.insert(std::move(uid)).second) << "duplicate after " << i;
    }
    // 2.2 million characters from 64 symbols: each occurs, and "-" and "_" replace "+" "/".
    EXPECT_EQ(characters.size(), 64u);
    EXPECT_EQ(characters.count('+') + characters.count('/') + characters.count('='), 0u);
    EXPECT_EQ(characters.count('-') + characters.count('_'), 2u);
}

TEST(UniqueIdTest, ThreadsDrawDifferentSequences) {
    std::array<std::vector<std::string>, 4> drawn;
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < drawn.size(); ++t) {
        threads.emplace_back([&drawn, t] {
            for (int i = 0; i < 5000; ++i) {
                drawn[t].push_back(uniqueBase64String());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::unordered_set<std::string> all;
    for (const auto& list : drawn) {
        all.insert(list.begin(), list.end());
    }
    EXPECT_EQ(all.size(), 20000u);
}

}  // namespace
}  // namespace brassline
