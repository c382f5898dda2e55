#include "layout/RichText.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <utility>

namespace brassline {

namespace {

// Style words of PostScript names, longest first so that "SemiBold" isn't read as "Bold".
struct StyleWord {
    std::string_view word;
    int weight;
};
constexpr StyleWord kWeightWords[] = {{"ExtraLight", 200}, {"UltraLight", 200}, {"ExtraBold", 800}, {"UltraBold", 800},
                                      {"SemiBold", 600},   {"DemiBold", 600},   {"Semibold", 600},  {"Demibold", 600},
                                      {"Hairline", 100},   {"Regular", 400},    {"Medium", 500},    {"Normal", 400},
                                      {"Black", 900},      {"Heavy", 900},      {"Light", 300},     {"Thin", 100},
                                      {"Bold", 700},       {"Book", 400},       {"Roman", 400}};

std::string familyFromCompactName(std::string_view name) {
    // Foundry suffixes carry no family meaning: "ArialMT", "TimesNewRomanPSMT".
    for (const std::string_view suffix : {std::string_view("PSMT"), std::string_view("MT")}) {
        if (name.size() > suffix.size() && name.ends_with(suffix)) {
            name.remove_suffix(suffix.size());
            break;
        }
    }
    std::string family;
    for (size_t i = 0; i < name.size(); ++i) {
        const auto c = static_cast<unsigned char>(name[i]);
        const bool wordStarts = i > 0 && std::isupper(c) != 0 && std::islower(static_cast<unsigned char>(name[i - 1]));
        if (wordStarts) {
            family += ' ';
        }
        family += static_cast<char>(c);
    }
    return family;
}

std::string weightWord(int weight) {
    int best = 400;
    std::string_view word;
    for (const auto& [candidate, candidateWeight] : {std::pair<std::string_view, int>{"Thin", 100},
                                                     {"ExtraLight", 200},
                                                     {"Light", 300},
                                                     {"", 400},
                                                     {"Medium", 500},
                                                     {"SemiBold", 600},
                                                     {"Bold", 700},
                                                     {"ExtraBold", 800},
                                                     {"Black", 900}}) {
        if (std::abs(candidateWeight - weight) < std::abs(best - weight) || candidateWeight == weight) {
            best = candidateWeight;
            word = candidate;
        }
    }
    return std::string(word);
}

KeyedNode inlineNumber(double value) {
    KeyedNode node = KeyedNode::fromValue(Value(value));
    node.kind = KeyedNode::Kind::Inline;
    return node;
}

KeyedNode inlineInteger(int64_t value) {
    KeyedNode node = KeyedNode::fromValue(Value(value));
    node.kind = KeyedNode::Kind::Inline;
    return node;
}

double nodeNumber(const KeyedNode* node, double fallback = 0.0) {
    return node != nullptr && node->value.isNumber() ? node->value.toDouble() : fallback;
}

template <typename T>
const T* nodeObject(const KeyedNode* node) {
    return node != nullptr ? dynamic_cast<const T*>(node->object.get()) : nullptr;
}

// A link is a string or an NSURL, relative to an optional base.
std::string linkText(const KeyedNode* node) {
    if (node == nullptr) {
        return {};
    }
    if (node->value.string() != nullptr) {
        return *node->value.string();
    }
    if (const auto* url = nodeObject<BLPlatformObject>(node)) {
        return url->fields().string("NS.base") + url->fields().string("NS.relative");
    }
    return {};
}

std::vector<const KeyedNode*> arrayObjects(const KeyedNode* node) {
    std::vector<const KeyedNode*> result;
    if (node != nullptr && node->kind == KeyedNode::Kind::Array) {
        for (const KeyedNode& element : node->elements) {
            result.push_back(&element);
        }
    }
    return result;
}

// A damaged archive may hold any number; what isn't finite reads as not set.
double finiteOrZero(double value) {
    return std::isfinite(value) ? value : 0.0;
}

ParagraphStyle readParagraphStyle(const BLParagraphStyle& archived) {
    ParagraphStyle style;
    style.alignment = archived.alignment();
    style.lineHeightMultiple = finiteOrZero(archived.value("NSLineHeightMultiple"));
    style.minimumLineHeight = finiteOrZero(archived.value("NSMinLineHeight"));
    style.maximumLineHeight = finiteOrZero(archived.value("NSMaxLineHeight"));
    style.lineSpacing = finiteOrZero(archived.value("NSLineSpacing"));
    style.paragraphSpacing = finiteOrZero(archived.value("NSParagraphSpacing"));
    style.paragraphSpacingBefore = finiteOrZero(archived.value("NSParagraphSpacingBefore"));
    style.firstLineHeadIndent = finiteOrZero(archived.value("NSFirstLineHeadIndent"));
    style.headIndent = finiteOrZero(archived.value("NSHeadIndent"));
    style.tailIndent = finiteOrZero(archived.value("NSTailIndent"));
    for (const KeyedNode* tab : arrayObjects(archived.fields().find("NSTabStops"))) {
        if (const auto* object = nodeObject<BLPlatformObject>(tab)) {
            const int64_t alignment = object->fields().integer("NSAlignment", 0);
            style.tabStops.push_back(
                {finiteOrZero(object->fields().number("NSLocation")),
                 alignment >= 0 && alignment <= 4 ? static_cast<TextAlignment>(alignment) : TextAlignment::Left});
        }
    }
    for (const KeyedNode* list : arrayObjects(archived.fields().find("NSTextLists"))) {
        if (const auto* object = nodeObject<BLPlatformObject>(list)) {
            style.textListMarkerFormats.push_back(object->fields().string("NSMarkerFormat"));
        }
    }
    return style;
}

void readAttributes(const KeyedNode& dictionary, TextAttributes& attributes, ParagraphStyle& style) {
    if (const auto* font = nodeObject<BLFont>(dictionary.member("NSFont"))) {
        attributes.fontName = font->fontName();
        const FontTraits traits = fontTraitsFromName(attributes.fontName);
        attributes.fontFamily = traits.family;
        attributes.fontWeight = traits.weight;
        attributes.italic = traits.italic;
        attributes.fontSize = font->pointSize();
    }
    if (const auto* color = nodeObject<BLColor>(dictionary.member("NSColor"))) {
        attributes.color = color->rgba().value_or(RGBA{});
    }
    attributes.underline = nodeNumber(dictionary.member("NSUnderline")) != 0.0;
    attributes.link = linkText(dictionary.member("NSLink"));
    attributes.baselineOffset = finiteOrZero(nodeNumber(dictionary.member("NSBaselineOffset")));
    if (const auto* paragraph = nodeObject<BLParagraphStyle>(dictionary.member("NSParagraphStyle"))) {
        style = readParagraphStyle(*paragraph);
    }
}

bool sameFont(const TextAttributes& a, const TextAttributes& b) {
    return a.fontName == b.fontName && a.fontFamily == b.fontFamily && a.fontSize == b.fontSize &&
           a.fontWeight == b.fontWeight && a.italic == b.italic;
}

std::shared_ptr<BLFont> makeFont(const TextAttributes& attributes) {
    const FontTraits traits = fontTraitsFromName(attributes.fontName);
    // A name that still says what the fields say is kept; a changed face gets a new name.
    const bool nameFits = !attributes.fontName.empty() && traits.family == attributes.fontFamily &&
                          traits.weight == attributes.fontWeight && traits.italic == attributes.italic;
    return BLFont::fontWithName(
        nameFits ? attributes.fontName
                 : postScriptFontName(attributes.fontFamily, attributes.fontWeight, attributes.italic),
        attributes.fontSize);
}

std::shared_ptr<BLParagraphStyle> makeParagraphStyle(const ParagraphStyle& style, const BLParagraphStyle* previous) {
    auto archived = std::make_shared<BLParagraphStyle>();
    if (previous != nullptr) {
        for (const auto& [key, node] : previous->fields().all()) {
            archived->fields().set(key, node);
        }
    }
    archived->fields().set("NSAlignment", inlineInteger(static_cast<int64_t>(style.alignment)));
    const std::pair<const char*, double> numbers[] = {{"NSLineHeightMultiple", style.lineHeightMultiple},
                                                      {"NSMinLineHeight", style.minimumLineHeight},
                                                      {"NSMaxLineHeight", style.maximumLineHeight},
                                                      {"NSLineSpacing", style.lineSpacing},
                                                      {"NSParagraphSpacing", style.paragraphSpacing},
                                                      {"NSParagraphSpacingBefore", style.paragraphSpacingBefore},
                                                      {"NSFirstLineHeadIndent", style.firstLineHeadIndent},
                                                      {"NSHeadIndent", style.headIndent},
                                                      {"NSTailIndent", style.tailIndent}};
    for (const auto& [key, value] : numbers) {
        // The archive leaves out what is zero.
        if (value != 0.0) {
            archived->setValue(key, value);
        } else {
            archived->fields().remove(key);
        }
    }
    std::vector<KeyedNode> tabs;
    for (const TabStop& stop : style.tabStops) {
        auto tab = std::make_shared<BLPlatformObject>("NSTextTab", std::vector<std::string>{"NSObject"});
        tab->fields().set("NSLocation", inlineNumber(stop.location));
        if (stop.alignment != TextAlignment::Left) {
            tab->fields().set("NSAlignment", inlineInteger(static_cast<int64_t>(stop.alignment)));
        }
        tabs.push_back(KeyedNode::fromObject(std::move(tab)));
    }
    archived->fields().remove("NSTabStops");
    if (!tabs.empty()) {
        archived->fields().set("NSTabStops", KeyedNode::array(std::move(tabs)));
    }
    std::vector<KeyedNode> lists;
    for (const std::string& format : style.textListMarkerFormats) {
        auto list = std::make_shared<BLPlatformObject>("NSTextList", std::vector<std::string>{"NSObject"});
        list->fields().set("NSMarkerFormat", KeyedNode::fromValue(Value(format)));
        lists.push_back(KeyedNode::fromObject(std::move(list)));
    }
    archived->fields().remove("NSTextLists");
    if (!lists.empty()) {
        archived->fields().set("NSTextLists", KeyedNode::array(std::move(lists)));
    }
    return archived;
}

// Sets a dictionary member, appending it when new; a null node removes it.
void setMember(KeyedNode& dictionary, std::string_view key, KeyedNode value) {
    for (size_t i = 0; i < dictionary.keys.size(); ++i) {
        if (dictionary.keys[i] == key) {
            if (value.kind == KeyedNode::Kind::Null) {
                dictionary.keys.erase(dictionary.keys.begin() + static_cast<std::ptrdiff_t>(i));
                dictionary.elements.erase(dictionary.elements.begin() + static_cast<std::ptrdiff_t>(i));
            } else {
                dictionary.elements[i] = std::move(value);
            }
            return;
        }
    }
    if (value.kind != KeyedNode::Kind::Null) {
        dictionary.keys.emplace_back(key);
        dictionary.elements.push_back(std::move(value));
    }
}

KeyedNode writeAttributes(const TextRun& run) {
    KeyedNode dictionary =
        run.archived.kind == KeyedNode::Kind::Dictionary ? run.archived : KeyedNode::dictionary({}, {});
    TextAttributes before;
    ParagraphStyle beforeStyle;
    readAttributes(dictionary, before, beforeStyle);
    const TextAttributes& now = run.attributes;
    const bool fresh = run.archived.kind != KeyedNode::Kind::Dictionary;
    if (fresh || !sameFont(before, now) || dictionary.member("NSFont") == nullptr) {
        setMember(dictionary, "NSFont", KeyedNode::fromObject(makeFont(now)));
    }
    if (fresh || before.color != now.color || dictionary.member("NSColor") == nullptr) {
        setMember(dictionary, "NSColor", KeyedNode::fromObject(BLColor::colorWithRGBA(now.color)));
    }
    if (fresh || beforeStyle != run.paragraphStyle || dictionary.member("NSParagraphStyle") == nullptr) {
        setMember(dictionary, "NSParagraphStyle",
                  KeyedNode::fromObject(makeParagraphStyle(
                      run.paragraphStyle, nodeObject<BLParagraphStyle>(dictionary.member("NSParagraphStyle")))));
    }
    if (before.underline != now.underline) {
        setMember(dictionary, "NSUnderline", now.underline ? inlineInteger(1) : KeyedNode());
    }
    if (before.link != now.link) {
        setMember(dictionary, "NSLink", now.link.empty() ? KeyedNode() : KeyedNode::fromValue(Value(now.link)));
    }
    if (before.baselineOffset != now.baselineOffset) {
        setMember(dictionary, "NSBaselineOffset",
                  now.baselineOffset != 0.0 ? inlineNumber(now.baselineOffset) : KeyedNode());
    }
    return dictionary;
}

std::string alphabetic(int64_t number, char first) {
    // Bijective base 26: 1 "a", 26 "z", 27 "aa".
    std::string text;
    while (number > 0) {
        --number;
        text.insert(text.begin(), static_cast<char>(first + number % 26));
        number /= 26;
    }
    return text;
}

std::string roman(int64_t number, bool upper) {
    static constexpr std::pair<int, std::string_view> kNumerals[] = {
        {1000, "m"}, {900, "cm"}, {500, "d"}, {400, "cd"}, {100, "c"}, {90, "xc"}, {50, "l"},
        {40, "xl"},  {10, "x"},   {9, "ix"},  {5, "v"},    {4, "iv"},  {1, "i"}};
    std::string text;
    for (const auto& [value, numeral] : kNumerals) {
        while (number >= value && text.size() < 64) {
            text += numeral;
            number -= value;
        }
    }
    if (upper) {
        std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    }
    return text;
}

std::string markerText(std::string_view name, int64_t number) {
    if (name == "disc") {
        return "\u2022";
    }
    if (name == "circle") {
        return "\u25E6";
    }
    if (name == "square") {
        return "\u25AA";
    }
    if (name == "hyphen") {
        return "\u2043";
    }
    if (name == "check") {
        return "\u2713";
    }
    if (name == "diamond") {
        return "\u25C6";
    }
    if (name == "box") {
        return "\u25AB";
    }
    if (name == "lower-alpha" || name == "lower-latin") {
        return alphabetic(number, 'a');
    }
    if (name == "upper-alpha" || name == "upper-latin") {
        return alphabetic(number, 'A');
    }
    if (name == "lower-roman") {
        return roman(number, false);
    }
    if (name == "upper-roman") {
        return roman(number, true);
    }
    if (name == "octal") {
        char buffer[32];
        std::snprintf(buffer, sizeof buffer, "%llo", static_cast<unsigned long long>(number));
        return buffer;
    }
    if (name == "lower-hexadecimal" || name == "upper-hexadecimal") {
        char buffer[32];
        std::snprintf(buffer, sizeof buffer, name[0] == 'l' ? "%llx" : "%llX", static_cast<unsigned long long>(number));
        return buffer;
    }
    return std::to_string(number);
}

}  // namespace

FontTraits fontTraitsFromName(std::string_view name) {
    FontTraits traits;
    if (name.empty()) {
        traits.family = "Helvetica";
        return traits;
    }
    if (name.find(' ') != std::string_view::npos) {
        traits.family = std::string(name);
        return traits;
    }
    std::string_view family = name;
    std::string_view style;
    if (const size_t dash = name.find('-'); dash != std::string_view::npos) {
        family = name.substr(0, dash);
        style = name.substr(dash + 1);
    }
    traits.family = familyFromCompactName(family);
    for (const std::string_view slant : {"Italic", "Oblique", "It"}) {
        if (const size_t at = style.find(slant); at != std::string_view::npos && at + slant.size() == style.size()) {
            traits.italic = true;
            style = style.substr(0, at);
            break;
        }
    }
    for (const auto& [word, weight] : kWeightWords) {
        if (style.find(word) != std::string_view::npos) {
            traits.weight = weight;
            break;
        }
    }
    return traits;
}

std::string postScriptFontName(std::string_view family, int weight, bool italic) {
    std::string name;
    for (const char c : family) {
        if (c != ' ') {
            name += c;
        }
    }
    std::string style = weightWord(weight);
    if (italic) {
        style += "Italic";
    }
    if (!style.empty()) {
        name += '-' + style;
    }
    return name;
}

std::string markerForItemNumber(std::string_view format, int64_t number) {
    std::string marker;
    size_t i = 0;
    while (i < format.size()) {
        const size_t open = format.find('{', i);
        const size_t close = open == std::string_view::npos ? open : format.find('}', open);
        if (close == std::string_view::npos) {
            marker.append(format.substr(i));
            break;
        }
        marker.append(format.substr(i, open - i));
        marker += markerText(format.substr(open + 1, close - open - 1), number);
        i = close + 1;
    }
    return marker;
}

RichText RichText::plain(std::string text, TextAttributes attributes, ParagraphStyle style) {
    RichText rich;
    rich.append(text, std::move(attributes), std::move(style));
    return rich;
}

RichText RichText::fromAttributedString(const BLAttributedString& string) {
    RichText rich;
    rich.m_text = string.string();
    for (const BLAttributedString::Run& archivedRun : string.runs()) {
        TextRun run;
        run.length = archivedRun.length;
        run.archived = archivedRun.attributes;
        readAttributes(archivedRun.attributes, run.attributes, run.paragraphStyle);
        rich.m_runs.push_back(std::move(run));
    }
    return rich;
}

std::shared_ptr<BLAttributedString> RichText::attributedString() const {
    auto string = std::make_shared<BLAttributedString>();
    for (size_t i = 0, offset = 0; i < m_runs.size() && offset < m_text.size(); ++i) {
        const size_t length = std::min(m_runs[i].length, m_text.size() - offset);
        string->appendString(std::string_view(m_text).substr(offset, length), writeAttributes(m_runs[i]));
        offset += length;
    }
    return string;
}

void RichText::append(std::string_view text, TextAttributes attributes, ParagraphStyle style) {
    if (text.empty()) {
        return;
    }
    m_text.append(text);
    m_runs.push_back({text.size(), std::move(attributes), std::move(style), KeyedNode()});
}

const TextRun* RichText::runAt(size_t offset) const {
    size_t position = 0;
    for (const TextRun& run : m_runs) {
        if (offset < position + run.length) {
            return &run;
        }
        position += run.length;
    }
    return m_runs.empty() ? nullptr : &m_runs.back();
}

}  // namespace brassline
