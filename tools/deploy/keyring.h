// The keys whose signatures are trusted.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "tools/deploy/options.h"
#include "tools/deploy/signature.h"

struct TrustedKey
{
    PublicKey Key;
    std::filesystem::path File;
    std::string Expires;  // the last day on which it is trusted, "2026-12-31"; empty: there is none
};

class CKeyring
{
  public:
    // Reads the keys in trusted.d of the configuration's folder (*.pub), and those that the options name. A key may
    // have a file NAME.expires beside its NAME.pub: one date. Throws std::runtime_error where one of all these can't be
    // read, or others can write to it: nothing is trusted then.
    explicit CKeyring(const DeployOptions& options);

    std::size_t Count() const { return m_Keys.size(); }

    // The key that has signed the message; today is a day in UTC, empty where keys that have expired are
    // trusted, too. Throws CRefusal where none has that is trusted.
    const TrustedKey& FindSigner(std::string_view message, std::string_view signature, const std::string& today) const;

  private:
    void Add(const std::filesystem::path& file);

    const std::filesystem::path m_Folder;
    std::vector<TrustedKey> m_Keys;
};
