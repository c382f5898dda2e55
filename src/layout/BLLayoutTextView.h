#pragma once

#include "layout/BLView.h"

namespace brassline {

// The rich text box of a layout. Its text and attributes are the archived rich text
// ("NSTextStorage"); the keys below are its own. Filling, measuring and drawing the text
// belong to the text layer, which works on `textStorage()`.
class BLLayoutTextView : public BLView {
public:
    explicit BLLayoutTextView(std::string className = "BLLayoutTextView");
    void encodeWithCoder(KeyedEncoder& coder) const override;
    void initWithCoder(KeyedDecoder& coder) override;
    Value::Dictionary compareDictionary() const override;
    int64_t pageMode() const override { return m_pageMode; }

    void localizeWithDictionary(const TranslationDictionary& dictionary) override;
    void appendTranslationDictionary(TranslationDictionary& dictionary) const override;
    void setTranslationDictionary(const TranslationDictionary& dictionary) override;
    void migrateLegacy() override;
    void migrateQuantity() override;
    void hideItemsWithKey(std::string_view key) override;
    void collectColors(std::vector<std::shared_ptr<BLColor>>& colors) const override;
    void collectStrings(std::vector<std::string>& strings) const override;
    void addFonts(std::set<std::string>& fonts) const override;
    void replaceColor(const ColorMatch& match, const std::shared_ptr<BLColor>& replacement) override;

    BLAttributedString& textStorage() { return *m_text; }
    const BLAttributedString& textStorage() const { return *m_text; }
    const std::string& string() const { return m_text->string(); }
    void setString(std::string text);
    // Replaces every occurrence of `search` (ASCII case-insensitive), keeping attributes.
    void replaceText(std::string_view search, std::string_view replacement);

    const std::string& script() const { return m_script; }
    void setScript(std::string script);
    const Value& uiWidth() const { return m_uiWidth; }
    void setUIWidth(Value width) { m_uiWidth = std::move(width); }
    const std::string& url() const { return m_url; }
    void setURL(std::string url) { m_url = std::move(url); }
    bool hyphenate() const { return m_hyphenate; }
    void setHyphenate(bool value) { m_hyphenate = value; }
    bool frameLocked() const { return m_frameLocked; }
    bool shiftSiblings() const { return m_shiftSiblings; }
    void setShiftSiblings(bool value) { m_shiftSiblings = value; }
    bool useLinkColor() const { return m_useLinkColor; }
    bool useLinkBold() const { return m_useLinkBold; }
    bool useLinkItalic() const { return m_useLinkItalic; }
    bool generalScript() const { return m_generalScript; }
    void setPageMode(int64_t mode) { m_pageMode = mode; }
    const std::shared_ptr<BLColor>& linkColor() const { return m_linkColor; }
    const std::vector<std::shared_ptr<BLBezierPath>>& exclusionPaths() const { return m_exclusionPaths; }
    void setExclusionPaths(std::vector<std::shared_ptr<BLBezierPath>> paths) { m_exclusionPaths = std::move(paths); }

private:
    std::shared_ptr<BLAttributedString> m_text;
    std::string m_script;
    Value m_uiWidth;
    std::string m_url;
    bool m_hyphenate = false;
    bool m_frameLocked = false;
    bool m_shiftSiblings = false;
    bool m_useLinkColor = false;
    bool m_useLinkBold = false;
    bool m_useLinkItalic = false;
    bool m_generalScript = false;
    int64_t m_pageMode = 0;
    std::shared_ptr<BLColor> m_linkColor;
    Value m_layoutInfo;
    std::vector<std::shared_ptr<BLBezierPath>> m_exclusionPaths;
};

// An image element: fixed bytes, a product image, a logo placeholder or a script's image.
class BLLayoutImageView : public BLView {
public:
    explicit BLLayoutImageView(std::string className = "BLLayoutImageView") : BLView(std::move(className)) {}
    void encodeWithCoder(KeyedEncoder& coder) const override;
    void initWithCoder(KeyedDecoder& coder) override;
    Value::Dictionary compareDictionary() const override;
    Rect spacingRect() const override;

    const Bytes& data() const { return m_data; }
    void setData(Bytes data) { m_data = std::move(data); }
    const std::string& script() const { return m_script; }
    const std::string& url() const { return m_url; }
    const std::string& qrCode() const { return m_qrCode; }
    bool logoPlaceholder() const { return m_flags.at("logoPlaceholder"); }
    void setFlag(const std::string& key, bool value) { m_flags[key] = value; }
    bool flag(const std::string& key) const;
    double spacing() const { return m_spacing; }
    void setSpacing(double spacing) { m_spacing = spacing; }
    int64_t imageAlign() const { return m_imageAlign; }

private:
    Bytes m_data;
    std::string m_script;
    std::string m_url;
    std::string m_qrCode;
    std::map<std::string, bool> m_flags{{"unflip", false},         {"doNotScale", false},      {"frameLocked", false},
                                        {"wrapText", false},       {"logoPlaceholder", false}, {"generalScript", false},
                                        {"useProductImage", false}};
    double m_spacing = 0.0;
    int64_t m_imageAlign = 0;
};

}  // namespace brassline
