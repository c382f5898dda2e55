#pragma once

#include <memory>
#include <optional>
#include <string>

namespace brassline {

// Where preferences whose uid ends in "@keychain" keep their payload, by service and
// account. The shared store is the desktop's secret service when a session bus answers,
// else files readable only by the user under ~/.local/share/brassline/secrets/. Failures
// answer false or nothing, with a log line. Main thread.
class SecretStore {
public:
    virtual ~SecretStore() = default;
    virtual bool storeSecret(const std::string& service, const std::string& account, const std::string& secret) = 0;
    virtual std::optional<std::string> readSecret(const std::string& service, const std::string& account) = 0;
    // True also when there was nothing to remove.
    virtual bool removeSecret(const std::string& service, const std::string& account) = 0;

    static SecretStore& shared();
    // Tests: a file store in `directory` replaces the shared one; an empty path returns to
    // the platform's choice.
    static void useDirectoryForTesting(const std::string& directory);
    // A store of files (mode 0600) in `directory`, created 0700 on the first write.
    static std::unique_ptr<SecretStore> makeFileStore(std::string directory);
};

}  // namespace brassline
