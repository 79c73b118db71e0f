#include "tools/deploy/manifest.h"

#include <sodium.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "support/files.h"
#include "support/printable.h"

const char* const ManifestFile = "MANIFEST";
const char* const SignatureFile = "MANIFEST.minisig";

namespace
{

const std::string_view Letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
const std::string_view NameCharacters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._+-";
const std::string_view DigestCharacters = "0123456789abcdef";
const std::size_t DigestLength = 2 * crypto_hash_sha256_BYTES;
const std::size_t MaxNameLength = 255;
const std::string_view Gap = "  ";

bool IsOf(std::string_view text, std::string_view characters)
{
    return text.find_first_not_of(characters) == std::string_view::npos;
}

bool IsName(std::string_view text)
{
    return !text.empty() && text.size() <= MaxNameLength && IsOf(text, NameCharacters) &&
           IsOf(text.substr(0, 1), Letters);
}

class CManifestReader
{
  public:
    explicit CManifestReader(std::string_view text) : m_Rest(text) {}

    Manifest Read()
    {
        Manifest manifest;
        if (TakeLine() != "FlashLib package 1") Refuse("is not \"FlashLib package 1\"");
        manifest.Name = TakeValue("name ");
        if (!IsName(manifest.Name)) Refuse("names no package");
        manifest.Version = TakeValue("version ");
        while (!m_Rest.empty()) {
            ListedFile file = TakeFile();
            if (manifest.Files.size() == MaxPackageFiles) Refuse("is one too many");
            if (!manifest.Files.empty() && file.Name <= manifest.Files.back().Name) Refuse("is out of order");
            manifest.Files.push_back(std::move(file));
        }
        if (std::none_of(manifest.Files.begin(), manifest.Files.end(),
                         [&manifest](const ListedFile& file) { return file.Name == manifest.Name; }))
            throw std::runtime_error("it lists no installer " + manifest.Name);
        return manifest;
    }

  private:
    std::string_view TakeLine()
    {
        m_Line++;
        const std::size_t end = m_Rest.find('\n');
        if (end == std::string_view::npos) Refuse("breaks off");
        const std::string_view line = m_Rest.substr(0, end);
        m_Rest.remove_prefix(end + 1);
        return line;
    }

    std::string TakeValue(std::string_view title)
    {
        const std::string_view line = TakeLine();
        if (line.substr(0, title.size()) != title) Refuse("has no \"" + std::string(title) + "\"");
        std::string value(line.substr(title.size()));
        if (value.empty() || value.size() > MaxNameLength || Printable(value) != value)
            Refuse("is no text for a person");
        return value;
    }

    ListedFile TakeFile()
    {
        const std::string_view line = TakeLine();
        const std::size_t sizeStart = DigestLength + Gap.size();
        const std::size_t sizeEnd = std::min(line.find(Gap, std::min(sizeStart, line.size())), line.size());
        if (sizeEnd <= sizeStart || sizeEnd == line.size() || line.substr(DigestLength, Gap.size()) != Gap)
            Refuse("is not digest, size, name");
        ListedFile file;
        file.Digest = line.substr(0, DigestLength);
        file.Size = ToSize(line.substr(sizeStart, sizeEnd - sizeStart));
        file.Name = line.substr(sizeEnd + Gap.size());
        if (!IsOf(file.Digest, DigestCharacters)) Refuse("has a digest that is none");
        if (file.Name.find('/') != std::string::npos)
            Refuse("names a file outside of the package: " + Printable(file.Name));
        if (!IsName(file.Name) || file.Name == ManifestFile || file.Name == SignatureFile)
            Refuse("has a name that no file of a package has: " + Printable(file.Name));
        return file;
    }

    std::size_t ToSize(std::string_view text) const
    {
        std::size_t size = 0;
        const auto parsed = std::from_chars(text.data(), text.data() + text.size(), size);
        const bool whole = parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
        if (!whole || size > MaxFileSize || (text[0] == '0' && text.size() > 1)) Refuse("has a size that no file has");
        return size;
    }

    [[noreturn]] void Refuse(const std::string& why) const
    {
        throw std::runtime_error("line " + std::to_string(m_Line) + " " + why);
    }

    std::string_view m_Rest;
    int m_Line = 0;
};

}  // namespace

Manifest ReadManifest(std::string_view text)
{
    if (text.size() > MaxManifestSize)
        throw std::runtime_error("it has more than " + std::to_string(MaxManifestSize) + " bytes");
    return CManifestReader(text).Read();
}

std::string Digest(std::string_view bytes)
{
    unsigned char hash[crypto_hash_sha256_BYTES];
    crypto_hash_sha256(hash, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    char szDigest[2 * sizeof hash + 1];
    return sodium_bin2hex(szDigest, sizeof szDigest, hash, sizeof hash);
}
