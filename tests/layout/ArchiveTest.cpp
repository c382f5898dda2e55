#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "../core/PythonCheck.h"
#include "layout/BLLayoutController.h"
#include "layout/BLLayoutElementView.h"
#include "layout/BLLayoutPageView.h"
#include "layout/BLLayoutTableSectionView.h"
#include "layout/BLLayoutTextView.h"
#include "layout/LayoutClasses.h"
#include "layout/LayoutValues.h"

namespace brassline {
namespace {

// Gives every stored property of an element a value other than its default, so that a
// key that is written but not read (or the reverse) shows in the comparison.
void setEveryProperty(BLView& view) {
    view.setFrame({10.25, 20.5, 130.75, 40.125});
    view.setHidden(true);
    if (auto* editing = dynamic_cast<BLLayoutEditingView*>(&view)) {
        editing->setIdentifier("item");
    }
    if (auto* table = dynamic_cast<BLLayoutTableView*>(&view)) {
        table->setBackgroundColor(BLColor::colorWithRGBA({0.25, 0.5, 0.75, 1.0}));
        table->setSummaryAtBottom(true);
        table->setSummarySeparated(true);
        table->setUseBackground(true);
        table->setFrameLocked(true);
        table->setLineInsetLeft(3.5);
        table->setLineInsetRight(4.5);
    }
    if (auto* section = dynamic_cast<BLLayoutTableSectionView*>(&view)) {
        section->setLineBeforeSizeInternal(0.75);
        section->setLineAfterSizeInternal(1.5);
        section->setSpaceAfterSize(7.0);
        section->setLineBeforeColor(BLColor::colorWithWhite(0.2));
        section->setLineAfterColor(BLColor::colorWithRGBA({1.0, 0.0, 0.0, 0.5}));
        section->setLineBeforeStyle(Value(Value::Array{Value(2.0), Value(1.0)}));
        section->setLineAfterStyle(Value(Value::Array{Value(4.0)}));
        section->setAlternate(true);
        section->setAlternateColor(BLColor::colorWithWhite(0.9));
        section->setBackgroundColor(BLColor::colorWithWhite(0.8));
        section->setUseBackground(true);
        section->setPageBreakBefore(true);
        section->setVerticalCenterContent(true);
        section->setLineInsets(1.0, 2.0, 3.0, 4.0);
    }
    if (auto* page = dynamic_cast<BLLayoutPageView*>(&view)) {
        page->setBackDropIndex(2);
        page->setPdfData(Bytes{'%', 'P', 'D', 'F'});
        page->setSource("function createSVG(w, h) { return ''; }");
        page->setSourcePath("/tmp/backdrop.js");
    }
    if (auto* text = dynamic_cast<BLLayoutTextView*>(&view)) {
        text->textStorage().appendString(
            "Invoice <document.number/>\n",
            BLAttributedString::attributes(BLFont::fontWithName("LiberationSans-Bold", 14.0),
                                           BLColor::colorWithRGBA({0.1, 0.2, 0.3, 1.0}),
                                           BLParagraphStyle::styleWithAlignment(TextAlignment::Right)));
        text->textStorage().appendString(
            "Grüße 😀 <sender.name/>",
            BLAttributedString::attributes(BLFont::fontWithName("LiberationSans", 9.0), nullptr, nullptr));
        text->setScript("result = 'x';");
        text->setUIWidth(Value(120.5));
        text->setURL("https://example.com/pay");
        text->setHyphenate(true);
        text->setShiftSiblings(true);
        text->setPageMode(1);
        text->setExclusionPaths({BLBezierPath::pathWithRect({1, 2, 3, 4})});
    }
    if (auto* image = dynamic_cast<BLLayoutImageView*>(&view)) {
        image->setData(Bytes{0x89, 'P', 'N', 'G'});
        image->setFlag("logoPlaceholder", true);
        image->setFlag("wrapText", true);
        image->setSpacing(3.25);
    }
    if (auto* path = dynamic_cast<BLLayoutPathView*>(&view)) {
        path->path = BLBezierPath::pathWithElements({{BLBezierPath::ElementType::MoveTo, {{0, 0}}},
                                                     {BLBezierPath::ElementType::CurveTo, {{1, 2}, {3, 4}, {5, 6}}},
                                                     {BLBezierPath::ElementType::ClosePath, {}}});
        path->clippingPath = BLBezierPath::pathWithRect({0, 0, 10, 10});
        path->fillColor = BLColor::colorWithWhite(0.5);
        path->strokeColor = BLColor::catalogColor("System", "textColor");
        path->image = BLImage::imageWithData(Bytes{1, 2, 3}, {16, 8});
        path->spacing = 2.5;
        path->lineWidth = 0.375;
        path->wrapText = true;
        path->useFillColor = true;
        path->useStrokeColor = true;
    }
    if (auto* rectangle = dynamic_cast<BLLayoutRectangleView*>(&view)) {
        rectangle->backgroundColor = BLColor::colorWithRGBA({0.0, 0.5, 0.0, 1.0});
    }
    if (auto* svg = dynamic_cast<BLLayoutSVGView*>(&view)) {
        svg->source = "<svg/>";
        svg->substitutes = Value(Value::Dictionary{{"a", Value("b")}});
    }
    if (auto* form = dynamic_cast<BLLayoutElementFormView*>(&view)) {
        form->showOnInvoices = true;
    }
    if (auto* code = dynamic_cast<BLLayoutQRCodeView*>(&view)) {
        code->settings = Value(
            Value::Array{Value(Value::Dictionary{{"parameterName", Value("iban")}, {"key", Value("sender.IBAN")}})});
        code->color = BLColor::colorWithRGBA({0.0, 0.0, 0.5, 1.0});
        code->spacing = 4.0;
        code->wrapText = true;
        code->useColor = true;
        code->hideOnDirectDebit = true;
        code->setPageMode(-1);
    }
    if (auto* element = dynamic_cast<BLLayoutElementView*>(&view)) {
        element->setFrameLocked(true);
    }
}

TEST(LayoutArchiveTest, EveryElementClassComesBackWithEveryProperty) {
    registerLayoutClasses();
    for (const std::string& className : layoutClassNames()) {
        if (className == "BLLayoutMissingElementView") {
            continue;  // It writes only what it read; its own test follows.
        }
        SCOPED_TRACE(className);
        ViewPtr view = makeView(className);
        ASSERT_NE(view, nullptr);
        setEveryProperty(*view);
        auto child = std::make_shared<BLLayoutTextView>();
        child->setFrame({1, 2, 3, 4});
        child->setString("child");
        view->addSubview(child);

        std::string error;
        ViewPtr back = viewFromArchive(archiveOfView(*view), &error);
        ASSERT_NE(back, nullptr) << error;
        EXPECT_EQ(back->className(), className);
        EXPECT_EQ(Value(back->compareDictionary()), Value(view->compareDictionary()));
        EXPECT_TRUE(back->isHidden());
        ASSERT_EQ(back->subviews().size(), 1U);
        EXPECT_EQ(back->subviews().front()->superview(), back.get());
        // A second trip writes the same archive: nothing drifts with each save. (Compared as
        // read: libplist may or may not merge equal data blobs, by their addresses.)
        EXPECT_EQ(Value::fromPropertyList(archiveOfView(*back)),
                  Value::fromPropertyList(archiveOfView(*viewFromArchive(archiveOfView(*back)))));
    }
}

TEST(LayoutArchiveTest, FloatsGoThroughSinglePrecisionAndDoublesDoNot) {
    auto section = std::make_shared<BLLayoutTableSectionView>();
    section->setFrame({0.1, 0.2, 100.3, 20.4});
    section->setSpaceAfterSize(0.1);
    ViewPtr back = viewFromArchive(archiveOfView(*section));
    auto* copy = dynamic_cast<BLLayoutTableSectionView*>(back.get());
    ASSERT_NE(copy, nullptr);
    // The frame is a rectangle string with the shortest double text; the space a float.
    EXPECT_EQ(copy->frame(), (Rect{0.1, 0.2, 100.3, 20.4}));
    EXPECT_EQ(copy->spaceAfterSize(), static_cast<double>(0.1F));
    EXPECT_NE(copy->spaceAfterSize(), 0.1);
}

TEST(LayoutArchiveTest, ColoursReadEachColourSpace) {
    struct Case {
        const char* name;
        std::shared_ptr<BLColor> color;
        const char* hex;
    };
    // 0.25 * 255 = 63.75 rounds to 64 (0x40); 0.8 * 255 = 204 (0xCC).
    const Case cases[] = {
        {"calibrated RGB", BLColor::colorWithRGBA({0.25, 0.5, 1.0, 1.0}), "#4080FF"},
        {"RGB with alpha", BLColor::colorWithRGBA({1.0, 0.0, 0.0, 0.5}), "#FF000080"},
        {"white", BLColor::colorWithWhite(0.8), "#CCCCCC"},
        {"catalog text colour", BLColor::catalogColor("System", "controlTextColor"), "#000000"},
        {"unknown catalog colour", BLColor::catalogColor("System", "selectedMenuItemColor"), ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::optional<Bytes> data = KeyedArchiver::archivedDataWithRootObject(*c.color);
        ASSERT_TRUE(data);
        registerLayoutClasses();
        auto back = std::dynamic_pointer_cast<BLColor>(KeyedUnarchiver::unarchiveArchivableWithData(*data));
        ASSERT_NE(back, nullptr);
        EXPECT_EQ(back->hexString(), c.hex);
    }
}

TEST(LayoutArchiveTest, RichTextRunsCountInUTF16UnitsAndSurviveEdits) {
    BLAttributedString text;
    const KeyedNode bold = BLAttributedString::attributes(BLFont::fontWithName("Bold", 12), nullptr, nullptr);
    const KeyedNode plain = BLAttributedString::attributes(BLFont::fontWithName("Plain", 10), nullptr, nullptr);
    text.appendString("ä😀", bold);  // 1 + 2 UTF-16 units, 2 + 4 bytes.
    text.appendString("xy", plain);
    auto archivable = std::make_shared<BLAttributedString>(text);
    registerLayoutClasses();
    const std::optional<Bytes> data = KeyedArchiver::archivedDataWithRootObject(*archivable);
    ASSERT_TRUE(data);
    auto back = std::dynamic_pointer_cast<BLAttributedString>(KeyedUnarchiver::unarchiveArchivableWithData(*data));
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->runs().size(), 2U);
    EXPECT_EQ(back->runs()[0].length, 6U);
    EXPECT_EQ(back->runs()[1].length, 2U);
    EXPECT_EQ(back->fonts().at(1)->fontName(), "Plain");

    // Replacing across the run boundary takes the attributes at the start of the range;
    // the pieces of the bold run join again.
    back->replaceCharacters(2, 5, "Z");  // "😀x" becomes "Z" in the bold run.
    EXPECT_EQ(back->string(), "äZy");
    ASSERT_EQ(back->runs().size(), 2U);
    EXPECT_EQ(back->runs()[0].length, 3U);
    EXPECT_EQ(back->runs()[1].length, 1U);
    back->replaceCharacters(0, back->string().size(), "");
    EXPECT_TRUE(back->runs().empty());
}

TEST(LayoutArchiveTest, DamagedRichTextAndPathsAreRefusedNotGuessed) {
    // Run info pointing at the third of two attribute dictionaries: the archive fails.
    registerLayoutClasses();
    auto text = std::make_shared<BLPlatformObject>("NSAttributedString", std::vector<std::string>{"NSObject"});
    text->fields().set("NSString", KeyedNode::fromValue(Value("abc")));
    text->fields().set("NSAttributes", KeyedNode::array({KeyedNode::dictionary({}, {})}));
    text->fields().set("NSAttributeInfo", KeyedNode::fromValue(Value(Bytes{3, 2})));
    const std::optional<Bytes> data = KeyedArchiver::archivedDataWithRootObject(*text);
    ASSERT_TRUE(data);
    std::string error;
    EXPECT_EQ(KeyedUnarchiver::unarchiveArchivableWithData(*data, &error), nullptr);
    EXPECT_NE(error.find("names no attributes"), std::string::npos) << error;

    BLBezierPath path;
    path.fields().set("NSSegments", KeyedNode::fromValue(Value(Bytes{2, 0, 0})));  // A curve without points.
    EXPECT_FALSE(path.elements().has_value());
}

// An element of a class from a later version, with values of every kind: an inline
// number, a string, data, a colour, a nested known element and a dictionary.
class FutureElement : public KeyedArchivable {
public:
    std::string archivedClassName() const override { return "BLLayoutHologramView"; }
    std::vector<std::string> archivedSuperclassNames() const override {
        return {"BLLayoutElementView", "NSView", "NSResponder", "NSObject"};
    }
    void encodeWithCoder(KeyedEncoder& coder) const override {
        coder.encodeString("{{5, 6}, {70, 80}}", "NSFrame");
        coder.encodeInt(42, "depth");
        coder.encodeDouble(0.125, "shimmer");
        coder.encodeString("holo", "mode");
        coder.encodeValue(Value(Bytes{9, 8, 7}), "payload");
        coder.encodeObject(color.get(), "tint");
        coder.encodeNode(KeyedNode::array({KeyedNode::fromObject(child)}, "NSMutableArray"), "NSSubviews");
        coder.encodeValue(Value(Value::Dictionary{{"k", Value(1)}}), "extra");
    }
    std::shared_ptr<BLColor> color = BLColor::colorWithRGBA({0.5, 0.5, 0.5, 1.0});
    std::shared_ptr<BLLayoutTextView> child = std::make_shared<BLLayoutTextView>();
};

// The record of the first object of a class in an archive, with references resolved into
// their contents and class records into names: what "the same values" means, independent
// of the order in which objects were numbered.
Value resolvedRecord(const Bytes& archive, const std::string& className) {
    const std::optional<Value> plist = Value::fromPropertyList(archive);
    const Value::Array& objects = *(*plist)["$objects"].array();
    std::function<Value(const Value&, int)> resolve = [&](const Value& value, int depth) -> Value {
        if (depth > 20) {
            return Value("...");
        }
        if (const Value::Dictionary* members = value.dictionary()) {
            if (members->size() == 1 && members->count("CF$UID") != 0) {
                return resolve(objects.at(static_cast<size_t>(members->at("CF$UID").toInt64())), depth + 1);
            }
            Value::Dictionary result;
            for (const auto& [key, member] : *members) {
                result.emplace(key, key == "$class" ? objects.at(static_cast<size_t>(member["CF$UID"].toInt64()))
                                                    : resolve(member, depth + 1));
            }
            return Value(std::move(result));
        }
        if (const Value::Array* elements = value.array()) {
            Value::Array result;
            for (const Value& element : *elements) {
                result.push_back(resolve(element, depth + 1));
            }
            return Value(std::move(result));
        }
        return value;
    };
    for (const Value& object : objects) {
        const Value& classRecord = object["$class"].dictionary() != nullptr
                                       ? objects.at(static_cast<size_t>(object["$class"]["CF$UID"].toInt64()))
                                       : Value();
        if (classRecord["$classname"].toString() == className) {
            return resolve(object, 0);
        }
    }
    return Value();
}

TEST(LayoutArchiveTest, AnUnknownClassSurvivesWithAllItsValuesAndDrawsTheTooOldMessage) {
    registerLayoutClasses();
    FutureElement future;
    future.child->setString("inside");
    auto page = std::make_shared<BLLayoutPageView>();
    page->setFrame({0, 0, 595, 842});
    page->setIdentifier("firstpage");
    const LayoutArchive original{{{page, "firstpage", "firstpage", {}, {}}}, {}};
    // Put the future element on the page through the archive: write, read, splice.
    const std::optional<Bytes> elementBytes = KeyedArchiver::archivedDataWithRootObject(future);
    ASSERT_TRUE(elementBytes);
    ViewPtr missing = viewFromArchive(*elementBytes);
    ASSERT_NE(missing, nullptr);
    EXPECT_EQ(missing->className(), "BLLayoutHologramView");
    auto* stand = dynamic_cast<BLLayoutMissingElementView*>(missing.get());
    ASSERT_NE(stand, nullptr);
    EXPECT_EQ(stand->frame(), (Rect{5, 6, 70, 80}));
    EXPECT_EQ(stand->missingMessage(), "This version of Brassline is too old to support BLLayoutHologramView");
    ASSERT_EQ(stand->subviews().size(), 1U);

    page->addSubview(missing);
    const Bytes written = writeLayoutArchive(original);
    const Value before = resolvedRecord(*elementBytes, "BLLayoutHologramView");
    const Value after = resolvedRecord(written, "BLLayoutHologramView");
    ASSERT_FALSE(before.isNull());
    EXPECT_EQ(after, before) << after.description() << "\n" << before.description();
    // A full load through the controller keeps its own values too; the known text inside
    // it takes the load's fixed black like every text without a colour.
    BLLayoutController controller;
    ASSERT_TRUE(controller.loadGT3Layout(written));
    const Value loaded = resolvedRecord(controller.layoutData(), "BLLayoutHologramView");
    for (const char* key : {"NSFrame", "depth", "shimmer", "mode", "payload", "tint", "extra", "$class"}) {
        SCOPED_TRACE(key);
        EXPECT_EQ(loaded[key], before[key]);
    }
}

TEST(LayoutArchiveTest, PythonsPlistlibReadsOurArchive) {
    if (!pythoncheck::hasPython()) {
        GTEST_SKIP() << "python3 with plistlib is not installed";
    }
    registerLayoutClasses();
    auto page = std::make_shared<BLLayoutPageView>();
    page->setIdentifier("firstpage");
    page->setFrame({0, 0, 595, 842});
    for (const std::string& className : layoutClassNames()) {
        ViewPtr view = makeView(className);
        setEveryProperty(*view);
        page->addSubview(view);
    }
    const Bytes data = writeLayoutArchive({{{page, "firstpage", "firstpage", {}, {}}}, {}});
    const std::filesystem::path file = std::filesystem::temp_directory_path() / "brassline-layout-archive.plist";
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
    // Walks the graph from the root by UIDs alone and lists the class names it meets.
    const std::string script = R"(import plistlib, sys
d = plistlib.load(open(sys.argv[1], 'rb'))
objs = d['$objects']
seen, names, stack = set(), set(), [d['$top']['root']]
while stack:
    u = stack.pop()
    if u.data in seen: continue
    seen.add(u.data)
    o = objs[u.data]
    if isinstance(o, dict):
        for k, v in o.items():
            if k == '$class': names.add(objs[v.data]['$classname'])
            elif isinstance(v, plistlib.UID): stack.append(v)
            elif isinstance(v, list): stack.extend(x for x in v if isinstance(x, plistlib.UID))
print(d['$archiver'], d['$version'], len(seen))
print(' '.join(sorted(names)))
)";
    const std::string output = pythoncheck::runPython(script, file);
    std::filesystem::remove(file);
    EXPECT_EQ(output.rfind("NSKeyedArchiver 100000 ", 0), 0U) << output;
    for (const char* name : {"BLLayoutPageView", "BLLayoutTextView", "NSTextStorage", "NSFont", "NSColor",
                             "NSMutableParagraphStyle", "NSBezierPath", "NSImage", "BLLayoutMissingElementView",
                             "ZPLayoutTableSectionView", "NSMutableDictionary", "NSMutableArray"}) {
        EXPECT_NE(output.find(std::string(" ") + name), std::string::npos) << name << "\n" << output;
    }
}

TEST(LayoutArchiveTest, LegacyPagesTurnTheirGuidesIntoATable) {
    registerLayoutClasses();
    ViewPtr page = makeView("ZPLayoutPageView");
    page->setFrame({0, 0, 595, 842});
    const std::pair<const char*, Rect> guides[] = {
        {"ZPLayoutHorizontalLeftBoundView", {0, 300, 10, 1}},   // y 300
        {"ZPLayoutVerticalTopBoundView", {60, 0, 1, 10}},       // x 60
        {"ZPLayoutHorizontalRightBoundView", {0, 700, 10, 1}},  // height 700 - 300 = 400
        {"ZPLayoutVerticalBottomBoundView", {530, 0, 1, 10}},   // width 530 - 60 = 470
    };
    for (const auto& [name, frame] : guides) {
        ViewPtr guide = makeView(name);
        guide->setFrame(frame);
        page->addSubview(guide);
    }
    auto back = std::dynamic_pointer_cast<BLLayoutPageView>(viewFromArchive(archiveOfView(*page)));
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->subviews().size(), 1U);
    ASSERT_NE(back->tableView(), nullptr);
    EXPECT_EQ(back->tableView()->frame(), (Rect{60, 300, 470, 400}));
}

TEST(LayoutArchiveTest, GeometryStringsReadAsThePlatformWritesThem) {
    EXPECT_EQ(stringFromRect({0, 0, 595, 842}), "{{0, 0}, {595, 842}}");
    EXPECT_EQ(stringFromSize({612, 792.5}), "{612, 792.5}");
    EXPECT_EQ(rectFromString("{{1.5,-2},{3e1, 4}}"), (Rect{1.5, -2, 30, 4}));
    EXPECT_EQ(sizeFromString("{595}"), std::nullopt);
    EXPECT_EQ(rectFromString("garbage"), std::nullopt);
}

}  // namespace
}  // namespace brassline
