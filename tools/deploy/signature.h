// Signatures and public keys in minisign's format: Ed25519 over a BLAKE2b-512 hash. The older form, over the bytes
// themselves, is none here.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

const std::size_t MaxSignatureSize = 16 << 10;  // bytes, of a file with a signature or a key

struct PublicKey
{
    std::array<unsigned char, 8> Id;
    std::array<unsigned char, 32> Bytes;

    // As minisign writes it: a number of up to 16 hexadecimal digits.
    std::string Name() const;
};

struct Signature
{
    std::array<unsigned char, 8> KeyId;
    std::array<unsigned char, 64> Bytes;
    std::string TrustedComment;                  // which is signed, too
    std::array<unsigned char, 64> CommentBytes;  // by these
};

// Read what is in a file. Throw std::runtime_error that says why it is none.
PublicKey ReadPublicKey(std::string_view text);
Signature ReadSignature(std::string_view text);

// The name of the key that a signature is by.
std::string KeyName(const Signature& signature);

// True when that key has signed the message, and the trusted comment with it.
bool IsSignedBy(const PublicKey& key, const Signature& signature, std::string_view message);
