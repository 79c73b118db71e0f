// Keeps the firmware that an installation is about to replace, so that it can be put back.
#pragma once

#include <memory>
#include <string>

// A folder of kept images. An image is a file DEVICE_VERSION_CHECKSUM.bin: what was read from the device, with the
// first 16 digits that sha256sum prints for it (images that end with their own CRC-32 have all the same CRC-32); the
// youngest file of a device is what was kept last. Beside it stands DEVICE.writing while an installation writes the
// device, with a line for the image that it has kept, and one for the start of the server. Whoever finds that file
// knows that an earlier installation did not get to its end: the device holds nothing that is worth keeping, and the
// image from before it is still the one to put back; unless the server was started since, and its component sees that
// the device is whole.
class CKeptImages
{
  public:
    void SetFolder(const std::string& folder) { m_Folder = folder; }

    // The path of a file of the folder; what has a '/' is a path already.
    std::string Path(const std::string& file) const;

    // Keeps a device's firmware, before the device is touched, and notes that it is being written; bytes null: there is
    // nothing to keep. All of that is on the disk when this returns. False when it can't be done.
    bool Begin(const std::string& device, const std::string& version, const void* bytes, int size);

    // Notes that the device is whole again, or still is. False when it can't be done.
    bool End(const std::string& device);

    // The image that Begin has kept, or left as it was; empty: none.
    const std::string& Image() const { return m_Image; }

    // True when an installation has not got to its end since the server was started, as far as that can be told.
    bool IsUnfinished(const std::string& device) const;

    // What a device can be brought back to whose installation did not get to its end; empty: nothing.
    std::string Interrupted(const std::string& device) const;

    // Why Begin or End failed: "the old firmware can't be kept in /var/lib/flashlib/backup: No space left on device".
    const std::string& GetErrorMessage() const { return m_ErrorMessage; }

  private:
    std::string ReadNote(const std::string& device) const;
    bool MakeFolder() const;
    bool Keep(const std::string& name, const void* bytes, int size) const;
    bool Write(const std::string& name, const void* bytes, int size) const;
    bool Fail();

    std::string m_Folder = "/var/lib/flashlib/backup";
    std::string m_Image;
    std::string m_ErrorMessage;
};

// The text, of a device or a version, as a part of a kept file's name.
std::string KeptNamePart(std::string text);

// The checksum of an image, and the one that a kept image's name tells; empty where it tells none.
std::string KeepChecksum(const void* bytes, int size);
std::string KeptChecksum(const std::string& file);

// All bytes of a regular file of at most maxSize; null with errno, which is EINVAL for what is no regular file.
std::unique_ptr<char[]> ReadKept(const std::string& path, int maxSize, int& size);
