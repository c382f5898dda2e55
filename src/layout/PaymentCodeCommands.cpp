#include "layout/PaymentCodeCommands.h"

#include <ostream>

#include "layout/BLOCRBPaymentCode.h"
#include "layout/BLSwissPaymentCode.h"
#include "layout/PaymentCodeDrawing.h"
#include "layout/ZPPaymentCodeNumberTransformers.h"
#include "lifecycle/CommandSupport.h"
#include "lifecycle/Substitution.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLProfile.h"
#include "model/entities/BLSendable.h"
#include "store/CommandFile.h"

namespace brassline::paymentcodecommands {

namespace {

using exitcode::kBadInput;
// Pixels a module in the PNG: 46 mm symbols of the usual versions come out near 600 pixels.
constexpr int kPixelsPerModule = 8;

struct KindName {
    const char* name;
    PaymentCodeKind kind;
};

constexpr KindName kKindNames[] = {
    {"bezahlcode", PaymentCodeKind::BezahlCode}, {"epc", PaymentCodeKind::EPC},       {"swiss", PaymentCodeKind::Swiss},
    {"stripe", PaymentCodeKind::Stripe},         {"paypal", PaymentCodeKind::PayPal}, {"ocrb", PaymentCodeKind::OCRB},
};

bool listsClass(std::string_view classes, std::string_view className) {
    size_t start = 0;
    while (start <= classes.size()) {
        size_t comma = classes.find(',', start);
        std::string_view entry =
            classes.substr(start, comma == std::string_view::npos ? std::string_view::npos : comma - start);
        while (!entry.empty() && entry.front() == ' ') {
            entry.remove_prefix(1);
        }
        while (!entry.empty() && entry.back() == ' ') {
            entry.remove_suffix(1);
        }
        if (entry == className) {
            return true;
        }
        if (comma == std::string_view::npos) {
            break;
        }
        start = comma + 1;
    }
    return false;
}

}  // namespace

std::optional<PaymentCodeKind> kindNamed(std::string_view name) {
    for (const KindName& entry : kKindNames) {
        if (name == entry.name) {
            return entry.kind;
        }
    }
    return std::nullopt;
}

std::optional<PaymentCodeKind> kindInLayoutClasses(std::string_view classes) {
    for (PaymentCodeKind kind :
         {PaymentCodeKind::BezahlCode, PaymentCodeKind::EPC, PaymentCodeKind::Swiss, PaymentCodeKind::Stripe,
          PaymentCodeKind::PayPal, PaymentCodeKind::OCRB, PaymentCodeKind::ESRCost}) {
        if (listsClass(classes, BLPaymentCode::forKind(kind)->elementClassName())) {
            return kind;
        }
    }
    return std::nullopt;
}

std::unique_ptr<BLPaymentCode> paymentCodeForDocument(BLSendable& document, PaymentCodeKind kind) {
    std::unique_ptr<BLPaymentCode> code = BLPaymentCode::forKind(kind);
    code->takeDefaultSettings();
    if (BLProfile* profile = document.sender()) {
        code->fillDefaultsValueFromProfile(*profile);
    }
    SubstitutionDictionary values = substitutionDictionary(document);
    if (auto* swiss = dynamic_cast<BLSwissPaymentCode*>(code.get())) {
        prepareSubstitutionForSwissCode(values, *swiss);
    }
    code->substituteValues(values);
    return code;
}

int paymentCode(const Options& options, std::ostream& out, std::ostream& err) {
    std::optional<PaymentCodeKind> kind;
    if (!options.kind.empty()) {
        kind = kindNamed(options.kind);
        if (!kind) {
            err << "brassline: unknown payment code kind \"" << options.kind
                << "\" (bezahlcode, epc, swiss, stripe, paypal or ocrb)\n";
            return kBadInput;
        }
    }
    std::optional<CommandFile> file = openCommandDocument(options.path, err);
    if (!file) {
        return kBadInput;
    }
    installPaymentCodeHooks();
    ManagedObject* object = file->objectWithUid(options.uid, err);
    if (object == nullptr) {
        return kBadInput;
    }
    auto* document = dynamic_cast<BLSendable*>(object);
    if (document == nullptr) {
        err << "brassline: " << options.uid << " is no document but a " << object->entityName() << "\n";
        return kBadInput;
    }
    if (!kind) {
        BLLayout* layout = document->layout();
        std::string classes = layout != nullptr ? layout->classes().value_or(std::string()) : std::string();
        kind = kindInLayoutClasses(classes);
        if (!kind) {
            err << "brassline: the document's layout has no payment code until layouts are drawn; name one with "
                   "--kind\n";
            return kBadInput;
        }
        err << "brassline: the layout holds a " << BLPaymentCode::forKind(*kind)->elementClassName()
            << "; until layouts are drawn its own settings are not read, the company's bank data stands in\n";
    }
    if (document->sender() == nullptr) {
        err << "brassline: the company has no default profile: the bank data is empty\n";
    }

    std::unique_ptr<BLPaymentCode> code = paymentCodeForDocument(*document, *kind);
    for (const std::string& problem : code->parameterProblems()) {
        err << "brassline: " << problem << "\n";
    }
    if (std::string hidden = code->hiddenReason(false); !hidden.empty()) {
        err << "brassline: the layout draws no payment code here: " << hidden << "\n";
        return kBadInput;
    }
    if (code->drawsQRSymbol()) {
        out << code->URL();
    } else {
        out << static_cast<const BLOCRBPaymentCode&>(*code).annotationString();
    }
    out.flush();
    if (!options.png.empty()) {
        std::string error;
        if (!writePaymentCodePNG(*code, options.png, kPixelsPerModule, &error)) {
            err << "brassline: no PNG: " << error << "\n";
            return kBadInput;
        }
    }
    if (code->hasSwissCross() && !code->validParameters()) {
        err << "brassline: the Swiss code is drawn with the warning sign over it\n";
        return kBadInput;
    }
    return exitcode::kSuccess;
}

}  // namespace brassline::paymentcodecommands
