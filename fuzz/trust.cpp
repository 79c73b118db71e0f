// A package's list of files, its signature, or a public key: the first byte says which.
#include <exception>

#include "fuzz/fuzz.h"
#include "tools/deploy/manifest.h"
#include "tools/deploy/signature.h"

const CStepBound StepBound = {0, 0};

namespace
{

// There is one text for a list, and no other is read as the same.
void RequireExact(const Manifest& manifest, std::string_view text)
{
    std::string again = "FlashLib package 1\nname " + manifest.Name + "\nversion " + manifest.Version + "\n";
    for (const ListedFile& file : manifest.Files)
        again += file.Digest + "  " + std::to_string(file.Size) + "  " + file.Name + "\n";
    REQUIRE(again == text);
}

}  // namespace

void Fuzz(CInput& input)
{
    const int kind = input.Byte() % 3;
    const std::string_view text(reinterpret_cast<const char*>(input.Data()), input.Size());
    try {
        if (kind == 0) RequireExact(ReadManifest(text), text);
        if (kind == 1) IsSignedBy(PublicKey{}, ReadSignature(text), text);
        if (kind == 2) REQUIRE(ReadPublicKey(text).Name().size() <= 16);
    } catch (const std::exception&) {
    }
}
