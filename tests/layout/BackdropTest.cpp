#include <cairo-pdf.h>
#include <cairo.h>
#include <gtest/gtest.h>

#include "layout/BLLayoutController.h"
#include "layout/BackdropRendering.h"
#include "layout/LayoutValues.h"

namespace brassline {
namespace {

cairo_status_t appendBytes(void* closure, const unsigned char* data, unsigned int length) {
    auto* bytes = static_cast<Bytes*>(closure);
    bytes->insert(bytes->end(), data, data + length);
    return CAIRO_STATUS_SUCCESS;
}

// A two-page stationery: A4, a grey band on page 1, a link on page 2 at 50, 60 (from the
// top) sized 100 x 20.
Bytes stationery() {
    Bytes pdf;
    cairo_surface_t* surface = cairo_pdf_surface_create_for_stream(&appendBytes, &pdf, 595, 842);
    cairo_t* cairo = cairo_create(surface);
    cairo_set_source_rgb(cairo, 0.5, 0.5, 0.5);
    cairo_rectangle(cairo, 0, 0, 595, 100);
    cairo_fill(cairo);
    cairo_show_page(cairo);
    cairo_tag_begin(cairo, CAIRO_TAG_LINK, "uri='https://example.com/terms' rect=[50 60 100 20]");
    // The PDF surface writes a link only around something drawn.
    cairo_rectangle(cairo, 50, 60, 100, 20);
    cairo_fill(cairo);
    cairo_tag_end(cairo, CAIRO_TAG_LINK);
    cairo_show_page(cairo);
    cairo_destroy(cairo);
    cairo_surface_finish(surface);
    cairo_surface_destroy(surface);
    return pdf;
}

class BackdropTest : public ::testing::Test {
protected:
    void SetUp() override { installBackdropRendering(); }
    void TearDown() override { backdropHooks() = BackdropHooks(); }
};

TEST_F(BackdropTest, APageOfTheBackdropGivesItsImageAndItsLinks) {
    struct Case {
        const char* name;
        int64_t index;
        size_t annotations;
    };
    // Page 2 holds the link; an index past the end draws page 1 and collects nothing.
    const Case cases[] = {{"first page", 0, 0}, {"second page", 1, 1}, {"no such page", 5, 0}};
    const Bytes pdf = stationery();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        BLLayoutPageView page;
        page.setBackDropIndex(c.index);
        page.setPdfData(pdf);
        ASSERT_NE(page.image(), nullptr);
        EXPECT_EQ(page.image()->size(), (Size{595, 842}));
        const Bytes png = page.image()->data();
        ASSERT_GT(png.size(), 8U);
        EXPECT_EQ(png[1], 'P');
        ASSERT_EQ(page.annotations().size(), c.annotations);
        if (c.annotations == 1) {
            EXPECT_EQ(page.annotations()[0]->classNameString(), "PDFAnnotationLink");
            const Value kept = backdropAnnotation(page.annotations()[0]->uid());
            EXPECT_EQ(kept["uri"], Value("https://example.com/terms"));
            // PDF coordinates from the bottom: y = 842 - 60 - 20 = 762.
            EXPECT_EQ(rectFromString(kept["rect"].toString()), (Rect{50, 762, 100, 20}));
        }
    }
    BLLayoutPageView broken;
    broken.setPdfData(Bytes{'%', 'P', 'D', 'F', '-', '1'});
    EXPECT_EQ(broken.image(), nullptr);
    EXPECT_TRUE(broken.annotations().empty());
}

TEST_F(BackdropTest, ADocumentsCopyCarriesTheImageAndAnnotationsNotThePDF) {
    auto page = std::make_shared<BLLayoutPageView>();
    page->setIdentifier("firstpage");
    page->setFrame({0, 0, 595, 842});
    page->setBackDropIndex(1);
    page->setPdfData(stationery());
    BLLayoutController controller;
    ASSERT_TRUE(controller.loadGT3Layout(writeLayoutArchive({{{page, "firstpage", "firstpage", {}, {}}}, {}})));
    auto copy = controller.pageViewForIdentifier("firstpage");
    EXPECT_TRUE(copy->pdfData().empty());
    ASSERT_NE(copy->image(), nullptr);
    EXPECT_EQ(copy->image()->size(), (Size{595, 842}));
    ASSERT_EQ(copy->annotations().size(), 1U);
    // The stored page keeps its PDF.
    EXPECT_FALSE(static_cast<BLLayoutPageView*>(controller.pageViews()[0].view.get())->pdfData().empty());
}

}  // namespace
}  // namespace brassline
