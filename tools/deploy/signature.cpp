#include "tools/deploy/signature.h"

#include <sodium.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace
{

const std::string_view UntrustedTitle = "untrusted comment: ";
const std::string_view TrustedTitle = "trusted comment: ";
const std::size_t KindLength = 2;  // bytes that say what the others are
const std::string_view KeyKind = "Ed";
const std::string_view HashedKind = "ED";
const std::string_view UnhashedKind = "Ed";

using Id = std::array<unsigned char, 8>;

const unsigned char* AsBytes(std::string_view text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::string_view TakeLine(std::string_view& rest)
{
    const std::size_t end = rest.find('\n');
    if (end == std::string_view::npos) throw std::runtime_error("it breaks off");
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    return line;
}

std::string_view TakeComment(std::string_view& rest, std::string_view title)
{
    const std::string_view line = TakeLine(rest);
    if (line.substr(0, title.size()) != title) throw std::runtime_error("it is not in minisign's format");
    return line.substr(title.size());
}

// A line of base64 of exactly so many bytes.
std::string TakeBytes(std::string_view& rest, std::size_t length)
{
    const std::string_view line = TakeLine(rest);
    std::string bytes(length, '\0');
    std::size_t decoded = 0;
    unsigned char* pBytes = reinterpret_cast<unsigned char*>(bytes.data());
    const int result = sodium_base642bin(pBytes, length, line.data(), line.size(), nullptr, &decoded, nullptr,
                                         sodium_base64_VARIANT_ORIGINAL);
    if (result != 0 || decoded != length) throw std::runtime_error("it is not in minisign's format");
    return bytes;
}

// Takes the next bytes for an array.
template <typename Array>
void Take(std::string_view& bytes, Array& array)
{
    std::copy_n(bytes.begin(), array.size(), array.begin());
    bytes.remove_prefix(array.size());
}

void RequireEnd(std::string_view rest)
{
    if (!rest.empty()) throw std::runtime_error("more stands behind it");
}

std::string IdText(const Id& id)
{
    const Id reversed = {id[7], id[6], id[5], id[4], id[3], id[2], id[1], id[0]};
    char szId[2 * sizeof(Id) + 1];
    std::string text = sodium_bin2hex(szId, sizeof szId, reversed.data(), reversed.size());
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return static_cast<char>(c >= 'a' ? c - 'a' + 'A' : c); });
    return text.erase(0, text.find_first_not_of('0'));
}

}  // namespace

std::string PublicKey::Name() const
{
    return IdText(Id);
}

PublicKey ReadPublicKey(std::string_view text)
{
    PublicKey key = {};
    TakeComment(text, UntrustedTitle);
    const std::string all = TakeBytes(text, KindLength + key.Id.size() + key.Bytes.size());
    RequireEnd(text);
    if (all.substr(0, KindLength) != KeyKind) throw std::runtime_error("it is no key for Ed25519");
    std::string_view bytes = std::string_view(all).substr(KindLength);
    Take(bytes, key.Id);
    Take(bytes, key.Bytes);
    return key;
}

Signature ReadSignature(std::string_view text)
{
    Signature signature = {};
    TakeComment(text, UntrustedTitle);
    const std::string all = TakeBytes(text, KindLength + signature.KeyId.size() + signature.Bytes.size());
    signature.TrustedComment = TakeComment(text, TrustedTitle);
    const std::string comment = TakeBytes(text, signature.CommentBytes.size());
    RequireEnd(text);
    const std::string_view kind = std::string_view(all).substr(0, KindLength);
    if (kind == UnhashedKind) throw std::runtime_error("it is in the legacy format, without a hash");
    if (kind != HashedKind) throw std::runtime_error("it is not in minisign's format");
    std::string_view bytes = std::string_view(all).substr(KindLength);
    Take(bytes, signature.KeyId);
    Take(bytes, signature.Bytes);
    bytes = comment;
    Take(bytes, signature.CommentBytes);
    return signature;
}

std::string KeyName(const Signature& signature)
{
    return IdText(signature.KeyId);
}

bool IsSignedBy(const PublicKey& key, const Signature& signature, std::string_view message)
{
    if (key.Id != signature.KeyId) return false;
    unsigned char hash[crypto_generichash_BYTES_MAX];
    crypto_generichash(hash, sizeof hash, AsBytes(message), message.size(), nullptr, 0);
    if (crypto_sign_verify_detached(signature.Bytes.data(), hash, sizeof hash, key.Bytes.data()) != 0) return false;
    std::string commented(signature.Bytes.begin(), signature.Bytes.end());
    commented += signature.TrustedComment;
    return crypto_sign_verify_detached(signature.CommentBytes.data(), AsBytes(commented), commented.size(),
                                       key.Bytes.data()) == 0;
}
