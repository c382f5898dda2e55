#pragma once

#include <string>

#include <unicode/uloc.h>

#include "EntityFixture.h"
#include "core/Localization.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLContact.h"
#include "model/entities/BLContainer.h"
#include "model/entities/BLProfile.h"

namespace brassline {

// Contacts in a fresh context, with ICU's locale and the translations fixed to US English
// so that country names and fallback words are known, and the firm's profile in `sender`.
class ContactFixture : public EntityFixture {
protected:
    void SetUp() override {
        EntityFixture::SetUp();
        UErrorCode status = U_ZERO_ERROR;
        m_previousLocale = uloc_getDefault();
        uloc_setDefault("en_US", &status);
        setCurrentLanguage("en");
    }
    void TearDown() override {
        UErrorCode status = U_ZERO_ERROR;
        uloc_setDefault(m_previousLocale.c_str(), &status);
        setCurrentLanguage("");
        EntityFixture::TearDown();
    }

    BLProfile* profile(const char* countryCode) {
        BLProfile* sender = BLContainer::defaultItemForContext<BLProfile>(context());
        if (countryCode != nullptr) {
            sender->setCountryCode(std::string(countryCode));
        } else {
            sender->setCountryCode(std::nullopt);
        }
        return sender;
    }

    struct Address {
        const char* street = nullptr;
        const char* zip = nullptr;
        const char* city = nullptr;
        const char* state = nullptr;
        const char* country = nullptr;
    };
    template <typename T = BLClient>
    T* contactAt(const Address& address) {
        T* contact = insert<T>();
        auto set = [](const char* value) {
            return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
        };
        contact->setAddress(set(address.street));
        contact->setZip(set(address.zip));
        contact->setCity(set(address.city));
        contact->setState(set(address.state));
        contact->setCountryCode(set(address.country));
        return contact;
    }

private:
    std::string m_previousLocale;
};

// U+00A0, which the address builders put between words that must stay on one line.
inline constexpr const char* kNbsp = "\u00A0";

}  // namespace brassline
