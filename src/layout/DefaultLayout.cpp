#include "layout/DefaultLayout.h"

#include <cstdlib>
#include <filesystem>
#include <set>

#include "core/BLLocales.h"
#include "core/Log.h"
#include "layout/BLLayoutElementView.h"
#include "layout/BLLayoutTextView.h"
#include "layout/LayoutClasses.h"
#include "layout/LayoutFiles.h"

#ifndef BRASSLINE_LAYOUTS_DIR
#define BRASSLINE_LAYOUTS_DIR ""
#endif

namespace brassline {

namespace {

PathSetting& layoutsDirectory() {
    static PathSetting setting;
    return setting;
}

std::shared_ptr<BLColor> colorFromHex(const Value& value) {
    const std::string* text = value.string();
    if (text == nullptr || text->size() != 7 || (*text)[0] != '#') {
        return nullptr;
    }
    const auto component = [&](size_t at) { return std::strtol(text->substr(at, 2).c_str(), nullptr, 16) / 255.0; };
    return BLColor::colorWithRGBA({component(1), component(3), component(5), 1.0});
}

TextAlignment alignmentNamed(const std::string& name) {
    if (name == "right") {
        return TextAlignment::Right;
    }
    if (name == "center") {
        return TextAlignment::Center;
    }
    if (name == "justified") {
        return TextAlignment::Justified;
    }
    return TextAlignment::Left;
}

struct Shift {
    double dx = 0.0;  // Extra paper width of the variant.
    double dy = 0.0;  // Extra paper height of the variant.
};

Rect frameOf(const Value& element, const Shift& shift) {
    const Value& frame = element["frame"];
    Rect rect{frame[0].toDouble(), frame[1].toDouble(), frame[2].toDouble(), frame[3].toDouble()};
    if (element["right"].toBool()) {
        rect.x += shift.dx;
    }
    if (element["stretch"].toBool()) {
        rect.width += shift.dx;
    }
    if (element["anchor"].toString() == "bottom") {
        rect.y += shift.dy;
    }
    if (element["shrink"].toBool()) {
        rect.height += shift.dy;
    }
    return rect;
}

ViewPtr elementFromDescription(const Value& element, const Shift& shift, std::string& error) {
    const std::string className = element["class"].toString();
    ViewPtr view = makeView(className);
    if (!view) {
        error = "Layout description: unknown class " + className;
        return nullptr;
    }
    view->setFrame(frameOf(element, shift));
    if (auto* text = dynamic_cast<BLLayoutTextView*>(view.get())) {
        const std::string font = element["font"].toString();
        const size_t blank = font.rfind(' ');
        const std::string fontName = blank != std::string::npos ? font.substr(0, blank) : font;
        const double size = blank != std::string::npos ? std::strtod(font.c_str() + blank + 1, nullptr) : 10.0;
        auto style = BLParagraphStyle::styleWithAlignment(alignmentNamed(element["align"].toString()));
        text->textStorage() = BLAttributedString();
        text->textStorage().appendString(
            element["text"].toString(),
            BLAttributedString::attributes(BLFont::fontWithName(fontName, size), colorFromHex(element["color"]),
                                           std::move(style)));
        if (element["pageMode"].isNumber()) {
            text->setPageMode(element["pageMode"].toInt64());
        }
    } else if (auto* path = dynamic_cast<BLLayoutPathView*>(view.get())) {
        const Rect frame = view->frame();
        if (element["line"].toBool()) {
            path->path = BLBezierPath::pathWithElements(
                {{BLBezierPath::ElementType::MoveTo, {{0.0, frame.height / 2}}},
                 {BLBezierPath::ElementType::LineTo, {{frame.width, frame.height / 2}}}});
        } else {
            path->path = BLBezierPath::pathWithRect(view->bounds());
        }
        path->strokeColor = colorFromHex(element["strokeColor"]);
        path->useStrokeColor = path->strokeColor != nullptr;
        path->fillColor = colorFromHex(element["fillColor"]);
        path->useFillColor = path->fillColor != nullptr;
        path->lineWidth = element["lineWidth"].isNumber() ? element["lineWidth"].toDouble() : 1.0;
    } else if (auto* rectangle = dynamic_cast<BLLayoutRectangleView*>(view.get())) {
        rectangle->backgroundColor = colorFromHex(element["color"]);
    } else if (auto* image = dynamic_cast<BLLayoutImageView*>(view.get())) {
        image->setFlag("logoPlaceholder", element["logoPlaceholder"].toBool());
    } else if (auto* table = dynamic_cast<BLLayoutTableView*>(view.get())) {
        table->setSummaryAtBottom(element["summaryAtBottom"].toBool());
    }
    return view;
}

const Value& variantOf(const Value& root, std::string_view variant) {
    static const Value none;
    return variant.empty() ? none : root["variants"][variant];
}

Size paperOf(const Value& root, std::string_view variant) {
    const Value& paper = variantOf(root, variant)["paper"].isNull() ? root["paper"] : variantOf(root, variant)["paper"];
    return {paper[0].toDouble(), paper[1].toDouble()};
}

}  // namespace

std::optional<LayoutArchive> buildLayoutFromDescription(std::string_view json, std::string_view variant,
                                                        std::string* error) {
    registerLayoutClasses();
    std::string reason;
    const std::optional<Value> root = Value::fromJSON(json, &reason);
    const auto fail = [&](std::string message) -> std::optional<LayoutArchive> {
        if (error != nullptr) {
            *error = std::move(message);
        }
        return std::nullopt;
    };
    if (!root || root->dictionary() == nullptr) {
        return fail("Layout description: " + (reason.empty() ? std::string("not an object") : reason));
    }
    if (!variant.empty() && variantOf(*root, variant).isNull()) {
        return fail("Layout description: no variant " + std::string(variant));
    }
    const Size base = paperOf(*root, "");
    const Size paper = paperOf(*root, variant);
    const Shift shift{paper.width - base.width, paper.height - base.height};
    LayoutArchive archive;
    std::string problem;
    const auto addElements = [&](BLView& parent, const Value& elements) {
        if (elements.array() == nullptr) {
            return;
        }
        for (const Value& element : *elements.array()) {
            if (ViewPtr view = elementFromDescription(element, shift, problem)) {
                parent.addSubview(std::move(view));
            }
        }
    };
    if (const Value::Array* pages = (*root)["pages"].array()) {
        for (const Value& page : *pages) {
            const std::string identifier = page["identifier"].toString();
            auto view = std::make_shared<BLLayoutPageView>();
            view->setFrame({0.0, 0.0, paper.width, paper.height});
            view->setIdentifier(identifier);
            addElements(*view, page["elements"]);
            archive.pages.push_back({view, identifier, identifier, {}, {}});
        }
    }
    double sectionWidth = 0.0;
    for (const LayoutRecord& page : archive.pages) {
        if (const BLLayoutTableView* table = static_cast<BLLayoutPageView*>(page.view.get())->tableView()) {
            sectionWidth = std::max(sectionWidth, table->width());
        }
    }
    if (const Value::Array* sections = (*root)["sections"].array()) {
        for (const Value& section : *sections) {
            const std::string identifier = section["identifier"].toString();
            auto view = std::make_shared<BLLayoutTableSectionView>();
            view->setIdentifier(identifier);
            view->setFrame({0.0, 0.0, sectionWidth, 20.0});
            if (section["spaceAfterSize"].isNumber()) {
                view->setSpaceAfterSize(section["spaceAfterSize"].toDouble());
            }
            view->setLineBeforeSizeInternal(section["lineBeforeSize"].toDouble());
            view->setLineAfterSizeInternal(section["lineAfterSize"].toDouble());
            view->setLineBeforeColor(colorFromHex(section["lineBeforeColor"]));
            view->setLineAfterColor(colorFromHex(section["lineAfterColor"]));
            view->setUseBackground(section["useBackground"].toBool());
            view->setBackgroundColor(colorFromHex(section["backgroundColor"]));
            view->setAlternate(section["alternate"].toBool());
            view->setAlternateColor(colorFromHex(section["alternateColor"]));
            view->setLineInsets(section["lineInsetLeft"].toDouble(), section["lineInsetRight"].toDouble(), 0.0, 0.0);
            if (const Value::Array* elements = section["elements"].array()) {
                for (const Value& element : *elements) {
                    if (ViewPtr child = elementFromDescription(element, {}, problem)) {
                        view->addSubviewWithoutResizing(std::move(child));
                    }
                }
            }
            // The stored height is what the editor shows: the rows' own height plus the space.
            view->setHeight(view->subviews().empty() ? 20.0 : view->displayHeight() + view->spaceAfterSize());
            archive.tableSections.push_back({view, identifier, identifier, {}, {}});
        }
    }
    if (!problem.empty()) {
        return fail(problem);
    }
    return archive;
}

std::string describedLayoutName(std::string_view json, std::string_view variant) {
    const std::optional<Value> root = Value::fromJSON(json);
    if (!root) {
        return {};
    }
    const Value& name = variantOf(*root, variant)["name"];
    return name.isNull() ? (*root)["name"].toString() : name.toString();
}

Size describedPaperSize(std::string_view json, std::string_view variant) {
    const std::optional<Value> root = Value::fromJSON(json);
    return root ? paperOf(*root, variant) : kFallbackPaperSize;
}

std::string defaultLayoutsDirectory() {
    return layoutsDirectory().value(BRASSLINE_LAYOUTS_DIR);
}

void setDefaultLayoutsDirectory(std::string directory) {
    layoutsDirectory().set(std::move(directory));
}

namespace {

std::string descriptionPath() {
    return std::string(BRASSLINE_RESOURCES_DIR) + "/layouts/Aluminium.json";
}

}  // namespace

std::string defaultLayoutName(bool letter) {
    return letter ? "Aluminium Letter" : "Aluminium";
}

Size defaultPaperSize(bool letter) {
    return letter ? Size{612.0, 792.0} : Size{595.0, 842.0};
}

std::optional<Bytes> defaultLayoutData(bool letter) {
    const std::filesystem::path package =
        std::filesystem::path(defaultLayoutsDirectory()) / (defaultLayoutName(letter) + ".brassline") / "Data.plist";
    if (const std::optional<std::string> data = readWholeFile(package.string()); data && !data->empty()) {
        return Bytes(data->begin(), data->end());
    }
    const std::optional<std::string> description = readWholeFile(descriptionPath());
    if (!description) {
        logMessage("Layout: neither the default package %@ nor its description %@ can be read", package.string(),
                   descriptionPath());
        return std::nullopt;
    }
    std::string error;
    const std::optional<LayoutArchive> archive =
        buildLayoutFromDescription(*description, letter ? "Letter" : "", &error);
    if (!archive) {
        logMessage("%@", error);
        return std::nullopt;
    }
    return writeLayoutArchive(*archive);
}

bool paperUsesLetter(std::string_view countryCode) {
    static const std::set<std::string, std::less<>> letterCountries = {"US", "CA", "MX", "PH", "CL", "CO", "VE",
                                                                       "CR", "GT", "SV", "PA", "DO", "PR", "NI"};
    return letterCountries.count(countryCode) != 0;
}

std::string currentRegion() {
    return currentLocaleCountryCode();
}

}  // namespace brassline
