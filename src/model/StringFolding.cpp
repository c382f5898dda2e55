#include "model/StringFolding.h"

#include <array>
#include <memory>

#include <unicode/translit.h>
#include <unicode/unistr.h>
#include <unicode/utypes.h>

namespace brassline {

namespace {

constexpr char32_t kTableLimit = 0x800;

// Decodes one UTF-8 sequence at `index`; a malformed byte decodes as itself with
// length 1 so that folding never fails on bad input.
char32_t decodeAt(std::string_view text, size_t index, size_t& length) {
    auto byte = static_cast<unsigned char>(text[index]);
    if (byte < 0x80) {
        length = 1;
        return byte;
    }
    int extra = byte >= 0xF8 ? -1 : byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : byte >= 0xC2 ? 1 : -1;
    if (extra < 0 || index + static_cast<size_t>(extra) >= text.size()) {
        length = 1;
        return 0xFFFFFFFF;
    }
    char32_t code = byte & (0x3F >> extra);
    for (int i = 1; i <= extra; ++i) {
        auto next = static_cast<unsigned char>(text[index + i]);
        if ((next & 0xC0) != 0x80) {
            length = 1;
            return 0xFFFFFFFF;
        }
        code = (code << 6) | (next & 0x3F);
    }
    length = static_cast<size_t>(extra) + 1;
    return code;
}

const icu::Transliterator* diacriticRemover() {
    // Transliterators are not safe to share between threads; one per thread.
    thread_local std::unique_ptr<icu::Transliterator> remover = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::Transliterator> made(icu::Transliterator::createInstance(
            icu::UnicodeString::fromUTF8("NFD; [:Nonspacing Mark:] Remove; NFC"), UTRANS_FORWARD, status));
        return U_SUCCESS(status) ? std::move(made) : nullptr;
    }();
    return remover.get();
}

void foldWithICU(std::string_view text, unsigned options, std::string& out) {
    icu::UnicodeString unicode =
        icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
    if ((options & kFoldDiacritics) != 0) {
        if (const auto* remover = diacriticRemover()) {
            remover->transliterate(unicode);
        }
    }
    if ((options & kFoldCase) != 0) {
        unicode.foldCase(U_FOLD_CASE_DEFAULT);
    }
    out.clear();
    unicode.toUTF8String(out);
}

// The folded form of each code point below U+0800, computed once through ICU, so that
// Latin, Greek and Cyrillic text folds by table lookups with the same results.
struct FoldTable {
    struct Entry {
        uint8_t length = 0;
        char bytes[15] = {};
    };
    std::array<Entry, kTableLimit> entries;
    bool complete = true;
};

const FoldTable& foldTable(unsigned options) {
    static const std::array<FoldTable, 4> tables = [] {
        std::array<FoldTable, 4> made;
        std::string input;
        std::string folded;
        for (unsigned option = 1; option < 4; ++option) {
            for (char32_t code = 0; code < kTableLimit; ++code) {
                input.clear();
                if (code < 0x80) {
                    input += static_cast<char>(code);
                } else {
                    input += static_cast<char>(0xC0 | (code >> 6));
                    input += static_cast<char>(0x80 | (code & 0x3F));
                }
                foldWithICU(input, option, folded);
                auto& entry = made[option].entries[code];
                if (folded.size() > sizeof(entry.bytes)) {
                    made[option].complete = false;
                    continue;
                }
                entry.length = static_cast<uint8_t>(folded.size());
                folded.copy(entry.bytes, folded.size());
            }
        }
        return made;
    }();
    return tables[options & 3];
}

}  // namespace

void foldString(std::string_view text, unsigned options, std::string& out) {
    out.clear();
    if ((options & 3) == 0) {
        out.assign(text);
        return;
    }
    bool ascii = true;
    for (char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            ascii = false;
            break;
        }
    }
    if (ascii) {
        out.assign(text);
        if ((options & kFoldCase) != 0) {
            for (char& c : out) {
                if (c >= 'A' && c <= 'Z') {
                    c = static_cast<char>(c + ('a' - 'A'));
                }
            }
        }
        return;
    }
    const FoldTable& table = foldTable(options);
    if (table.complete) {
        out.reserve(text.size());
        for (size_t index = 0; index < text.size();) {
            size_t length = 1;
            char32_t code = decodeAt(text, index, length);
            if (code == 0xFFFFFFFF) {
                out += text[index];
            } else if (code < kTableLimit) {
                const auto& entry = table.entries[code];
                out.append(entry.bytes, entry.length);
            } else {
                // Beyond the table (CJK, symbols, supplementary planes): the whole text
                // goes through ICU so that composition sees the text as one.
                foldWithICU(text, options, out);
                return;
            }
            index += length;
        }
        return;
    }
    foldWithICU(text, options, out);
}

std::string foldedString(std::string_view text, unsigned options) {
    std::string out;
    foldString(text, options, out);
    return out;
}

}  // namespace brassline
