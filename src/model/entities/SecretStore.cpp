#include "model/entities/SecretStore.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <libsecret/secret.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/Log.h"

namespace brassline {

namespace {

const SecretSchema* schema() {
    static const SecretSchema kSchema = {"org.brassline.Preference",
                                         SECRET_SCHEMA_NONE,
                                         {{"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                          {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                          {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
                                         0,
                                         nullptr,
                                         nullptr,
                                         nullptr,
                                         nullptr,
                                         nullptr,
                                         nullptr,
                                         nullptr};
    return &kSchema;
}

std::string takeError(GError* error) {
    std::string message = error != nullptr && error->message != nullptr ? error->message : "unknown error";
    if (error != nullptr) {
        g_error_free(error);
    }
    return message;
}

class LibsecretStore : public SecretStore {
public:
    bool storeSecret(const std::string& service, const std::string& account, const std::string& secret) override {
        GError* error = nullptr;
        std::string label = service + " (" + account + ")";
        gboolean ok =
            secret_password_store_sync(schema(), SECRET_COLLECTION_DEFAULT, label.c_str(), secret.c_str(), nullptr,
                                       &error, "service", service.c_str(), "account", account.c_str(), nullptr);
        if (!ok) {
            logMessage("Could not store the secret %@: %@", service, takeError(error));
        }
        return ok;
    }

    std::optional<std::string> readSecret(const std::string& service, const std::string& account) override {
        GError* error = nullptr;
        gchar* password = secret_password_lookup_sync(schema(), nullptr, &error, "service", service.c_str(), "account",
                                                      account.c_str(), nullptr);
        if (error != nullptr) {
            logMessage("Could not read the secret %@: %@", service, takeError(error));
            return std::nullopt;
        }
        if (password == nullptr) {
            return std::nullopt;
        }
        std::string result(password);
        secret_password_free(password);
        return result;
    }

    bool removeSecret(const std::string& service, const std::string& account) override {
        GError* error = nullptr;
        secret_password_clear_sync(schema(), nullptr, &error, "service", service.c_str(), "account", account.c_str(),
                                   nullptr);
        if (error != nullptr) {
            logMessage("Could not remove the secret %@: %@", service, takeError(error));
            return false;
        }
        return true;
    }
};

// One file per service and account, named by their hex bytes so that any text is a
// valid, unambiguous file name.
class FileSecretStore : public SecretStore {
public:
    explicit FileSecretStore(std::string directory) : m_directory(std::move(directory)) {}

    bool storeSecret(const std::string& service, const std::string& account, const std::string& secret) override {
        std::error_code error;
        std::filesystem::create_directories(m_directory, error);
        if (error) {
            logMessage("Could not create the secrets folder %@: %@", m_directory, error.message());
            return false;
        }
        ::chmod(m_directory.c_str(), 0700);
        std::string path = pathFor(service, account);
        // Created with 0600 from the start: the secret is never readable by others, not
        // even between open and a later chmod.
        int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd < 0) {
            logMessage("Could not write the secret %@: %@", service, std::strerror(errno));
            return false;
        }
        ::fchmod(fd, 0600);
        size_t written = 0;
        while (written < secret.size()) {
            ssize_t result = ::write(fd, secret.data() + written, secret.size() - written);
            if (result < 0) {
                if (errno == EINTR) {
                    continue;
                }
                logMessage("Could not write the secret %@: %@", service, std::strerror(errno));
                ::close(fd);
                return false;
            }
            written += static_cast<size_t>(result);
        }
        ::close(fd);
        return true;
    }

    std::optional<std::string> readSecret(const std::string& service, const std::string& account) override {
        std::ifstream input(pathFor(service, account), std::ios::binary);
        if (!input) {
            return std::nullopt;
        }
        std::ostringstream text;
        text << input.rdbuf();
        return text.str();
    }

    bool removeSecret(const std::string& service, const std::string& account) override {
        std::error_code error;
        std::filesystem::remove(pathFor(service, account), error);
        if (error) {
            logMessage("Could not remove the secret %@: %@", service, error.message());
            return false;
        }
        return true;
    }

private:
    static std::string hex(const std::string& text) {
        static const char* digits = "0123456789abcdef";
        std::string result;
        for (unsigned char c : text) {
            result += digits[c >> 4];
            result += digits[c & 15];
        }
        return result;
    }
    std::string pathFor(const std::string& service, const std::string& account) const {
        return m_directory + "/" + hex(service) + "-" + hex(account);
    }

    std::string m_directory;
};

bool sessionSecretServiceReachable() {
    const char* bus = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (bus == nullptr || *bus == '\0') {
        return false;
    }
    GError* error = nullptr;
    SecretService* service = secret_service_get_sync(SECRET_SERVICE_NONE, nullptr, &error);
    if (service == nullptr) {
        logMessage("No secret service on the session bus (%@): secrets are kept in files", takeError(error));
        return false;
    }
    g_object_unref(service);
    return true;
}

std::string defaultSecretsDirectory() {
    const char* home = std::getenv("HOME");
    return std::string(home != nullptr ? home : ".") + "/.local/share/brassline/secrets";
}

std::unique_ptr<SecretStore>& sharedSlot() {
    static std::unique_ptr<SecretStore> store;
    return store;
}

}  // namespace

SecretStore& SecretStore::shared() {
    std::unique_ptr<SecretStore>& slot = sharedSlot();
    if (!slot) {
        if (sessionSecretServiceReachable()) {
            slot = std::make_unique<LibsecretStore>();
        } else {
            slot = makeFileStore(defaultSecretsDirectory());
        }
    }
    return *slot;
}

void SecretStore::useDirectoryForTesting(const std::string& directory) {
    sharedSlot() = directory.empty() ? nullptr : makeFileStore(directory);
}

std::unique_ptr<SecretStore> SecretStore::makeFileStore(std::string directory) {
    return std::make_unique<FileSecretStore>(std::move(directory));
}

}  // namespace brassline
