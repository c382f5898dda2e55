// Fuzzes fill-in detection: arbitrary bytes go through the bracket pattern, the word
// segmentation and all token finders. Every range must lie inside the text on character
// boundaries, every token must read exactly its range, and the settled tokens must be in
// order without overlaps; a second run must answer the same.
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include <unicode/utf8.h>

#include "core/Log.h"
#include "lifecycle/PlaceHolderTokens.h"

namespace {

using brassline::PlaceHolderToken;
using brassline::TextRange;

void fail(const char* what) {
    std::fprintf(stderr, "placeholder_fuzz: %s\n", what);
    std::abort();
}

// Character starts as the detectors decode: each ill-formed sequence is one character.
std::vector<bool> characterStarts(std::string_view text) {
    std::vector<bool> starts(text.size() + 1, false);
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    const auto length = static_cast<int32_t>(text.size());
    for (int32_t index = 0; index < length;) {
        starts[static_cast<size_t>(index)] = true;
        UChar32 c = 0;
        U8_NEXT(bytes, index, length, c);
        (void)c;
    }
    starts[text.size()] = true;
    return starts;
}

void checkRange(const std::vector<bool>& starts, const TextRange& range) {
    if (range.end() >= starts.size() || range.end() < range.location) {
        fail("range outside the text");
    }
    if (!starts[range.location] || !starts[range.end()]) {
        fail("range splits a character");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = [] {
        brassline::setLogEchoesToStandardError(false);
        brassline::setLogFilePath({});
        return true;
    }();
    (void)quiet;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::vector<bool> starts = characterStarts(text);
    for (const TextRange& range : brassline::placeHolderRanges(text)) {
        checkRange(starts, range);
        if (text[range.location] != '[' || text[range.end() - 1] != ']') {
            fail("bracket range without brackets");
        }
    }
    for (const TextRange& range : brassline::wordRanges(text)) {
        checkRange(starts, range);
    }
    const std::vector<PlaceHolderToken> tokens = brassline::analyzeString(text);
    for (size_t i = 0; i < tokens.size(); ++i) {
        checkRange(starts, tokens[i].range);
        if (tokens[i].value != text.substr(tokens[i].range.location, tokens[i].range.length)) {
            fail("token value differs from its range");
        }
        if (i > 0 && tokens[i - 1].range.end() > tokens[i].range.location) {
            fail("settled tokens overlap or are out of order");
        }
    }
    if (brassline::analyzeString(text) != tokens) {
        fail("detection is not deterministic");
    }
    return 0;
}
