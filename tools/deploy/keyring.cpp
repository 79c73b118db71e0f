#include "tools/deploy/keyring.h"

#include <sodium.h>

#include <algorithm>
#include <ctime>
#include <optional>
#include <stdexcept>

#include "support/files.h"
#include "tools/deploy/guarded.h"
#include "tools/deploy/refusal.h"
#include "tools/deploy/statefolder.h"

namespace fs = std::filesystem;

namespace
{

const std::size_t MaxExpirySize = 64;  // bytes
const char* const DateFormat = "%Y-%m-%d";

// The date that is all of a file's text; empty where there is no file.
std::string ReadDate(const fs::path& file)
{
    const std::optional<std::string> read = ReadFileIfThere(file, MaxExpirySize);
    if (!read) return "";
    const std::string& text = *read;
    std::string date = text.substr(0, text.find_last_not_of(" \t\r\n") + 1);
    std::tm parts = {};
    const char* pszEnd = strptime(date.c_str(), DateFormat, &parts);
    char szAgain[16] = "";
    std::strftime(szAgain, sizeof szAgain, DateFormat, &parts);
    if (!pszEnd || *pszEnd || date != szAgain)
        throw std::runtime_error(file.string() + " holds no date like 2026-12-31");
    return date;
}

[[noreturn]] void Refuse(const fs::path& file, const std::exception& error)
{
    throw std::runtime_error("the key in " + file.string() + " can't be trusted: " + error.what());
}

// In a folder that others can't write to, nor to what is in it.
std::vector<fs::path> KeysIn(const fs::path& folder, const fs::path& top)
{
    std::vector<fs::path> files;
    std::error_code error;
    fs::directory_iterator entries(folder, error);
    if (error == std::errc::no_such_file_or_directory) return files;
    if (error) throw std::runtime_error("can't read the keys in " + folder.string() + ": " + error.message());
    RequireGuarded(folder, top);
    for (const auto& entry : entries) {
        RequireGuarded(entry.path(), top);
        if (entry.path().extension() == ".pub") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

CKeyring::CKeyring(const DeployOptions& options) : m_Folder(ConfigFolder(options) / "trusted.d")
{
    if (sodium_init() < 0) throw std::runtime_error("signatures can't be checked: libsodium can't be used");
    for (const fs::path& file : KeysIn(m_Folder, RootFolder(options))) Add(file);
    for (const std::string& file : options.Trust) Add(file);
}

void CKeyring::Add(const fs::path& file)
{
    try {
        m_Keys.push_back({ReadPublicKey(ReadWholeFile(file, MaxSignatureSize)), file,
                          ReadDate(fs::path(file).replace_extension(".expires"))});
    } catch (const std::exception& error) {
        Refuse(file, error);
    }
}

const TrustedKey& CKeyring::FindSigner(std::string_view message, std::string_view text, const std::string& today) const
{
    Signature signature;
    try {
        signature = ReadSignature(text);
    } catch (const std::exception& error) {
        throw CRefusal(std::string("The package's signature is none: ") + error.what() + ".", GetPackageAnew);
    }
    const std::string name = KeyName(signature);
    const auto hasId = [&signature](const TrustedKey& k) { return k.Key.Id == signature.KeyId; };
    if (std::none_of(m_Keys.begin(), m_Keys.end(), hasId))
        throw CRefusal("The package is signed with the key " + name + ", which is not trusted here.",
                       "If that is its maker's key, put the public key into " + m_Folder.string() +
                           ", or name its file with --trust.");
    const auto signer = std::find_if(m_Keys.begin(), m_Keys.end(), [&signature, message](const TrustedKey& k) {
        return IsSignedBy(k.Key, signature, message);
    });
    if (signer == m_Keys.end())
        throw CRefusal("The package's list of files is not what was signed with the key " + name + ".", GetPackageAnew);
    if (!signer->Expires.empty() && signer->Expires < today)
        throw CRefusal("The package is signed with the key " + name + ", which was trusted until " + signer->Expires +
                           " only (" + signer->File.string() + ").",
                       "Get one from its maker that is signed with a newer key.");
    return *signer;
}
