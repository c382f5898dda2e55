#pragma once

#include "layout/BLLayoutEditingView.h"

namespace brassline {

class BLPDFAnnotation;

// A page of a layout: free elements on it, at most one table area, and maybe a backdrop
// PDF (`pdfData`, page `backDropIndex`) or, in a document's copy, its rendered image with
// the form fields found on it.
class BLLayoutPageView : public BLLayoutPastingView {
public:
    explicit BLLayoutPageView(std::string className = "BLLayoutPageView");
    void encodeWithCoder(KeyedEncoder& coder) const override;
    void initWithCoder(KeyedDecoder& coder) override;
    void awakeAfterDecoding() override;
    Value::Dictionary compareDictionary() const override;
    Value::Dictionary layoutInfoDictionary() const override;

    int64_t backDropIndex() const { return m_backDropIndex; }
    void setBackDropIndex(int64_t index) { m_backDropIndex = index; }
    const Bytes& pdfData() const { return m_pdfData; }
    void setPdfData(Bytes data);
    const std::string& source() const { return m_source; }
    void setSource(std::string source);
    const std::string& sourcePath() const { return m_sourcePath; }
    void setSourcePath(std::string path) { m_sourcePath = std::move(path); }
    bool encodeImage() const { return m_encodeImage; }
    void setEncodeImage(bool value) { m_encodeImage = value; }
    const std::shared_ptr<BLImage>& image() const { return m_image; }
    void setImage(std::shared_ptr<BLImage> image) { m_image = std::move(image); }
    const std::vector<std::shared_ptr<BLPDFAnnotation>>& annotations() const { return m_annotations; }
    void setAnnotations(std::vector<std::shared_ptr<BLPDFAnnotation>> annotations);
    bool hasAnnotations() const { return m_annotationsSet; }

    // Remakes the backdrop image from the PDF (through the backdrop hook) and forgets the
    // collected annotations.
    void updateBackdrop();
    // The subview whose class is exactly "BLLayoutTablePreviewView"; nullptr if none.
    BLLayoutTableView* tableView() const;
    // Removes any table area; false for extra pages, which have no table.
    bool canTakeTable();
    // Replaces the preview table by a plain table on its integral frame with the same
    // settings, and answers it; nullptr if the page has no table.
    BLLayoutTableView* setupForPreview();
    // Hides elements by their page mode: `pages` are all page views of the document.
    void applyPageModes(const std::vector<BLLayoutPageView*>& pages);

private:
    int64_t m_backDropIndex = 0;
    Bytes m_pdfData;
    std::string m_source;
    std::string m_sourcePath;
    bool m_encodeImage = false;
    std::shared_ptr<BLImage> m_image;
    std::vector<std::shared_ptr<BLPDFAnnotation>> m_annotations;
    bool m_annotationsSet = false;
};

// Backdrop work that needs a PDF library; installed by the rendering layer. Empty hooks
// leave the page without an image and without annotations.
struct BackdropHooks {
    // The image of page `index` of the PDF (or of its first page); nullptr if it won't open.
    std::function<std::shared_ptr<BLImage>(const Bytes& pdf, int64_t index)> imageOfPage;
    // The text widgets and links of page `index`; empty if the page doesn't exist.
    std::function<std::vector<std::shared_ptr<BLPDFAnnotation>>(const Bytes& pdf, int64_t index)> annotationsOfPage;
    // The image of a programmed backdrop ("createSVG(width,height)"); nullptr if none.
    std::function<std::shared_ptr<BLImage>(const std::string& source, Size size)> imageFromSource;
};
BackdropHooks& backdropHooks();

}  // namespace brassline
