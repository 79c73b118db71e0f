#include <cctype>
#include <cstring>

#include "debug.h"
#include "pwrmicro.h"

namespace
{

enum HexRecordType
{
    HexRecordType_Data = 0,
    HexRecordType_EndOfFile = 1,
    HexRecordType_ExtendedLinearAddress = 4,
};

// A record in binary: count, address high and low, type, data, checksum.
struct CHexRecord
{
    static constexpr int MaxSize = 384;
    static constexpr int Overhead = 5;  // bytes beside the data

    int Count() const { return Bytes[0]; }
    int Address() const { return Bytes[1] << 8 | Bytes[2]; }
    int Type() const { return Bytes[3]; }
    const UINT8* Data() const { return Bytes + 4; }
    int DataByte(int index) const { return index < Count() ? Data()[index] : 0; }

    std::size_t Offset;  // of its colon in the text
    int Size;            // bytes
    UINT8 Bytes[MaxSize];
};

struct CHexDigits
{
    bool IsDigit[256];
    UINT8 Nibble[256];
};

// Every character has a nibble. kept: hex-lower-case (that of a lower-case digit is too large by 0x20)
constexpr CHexDigits MakeHexDigits()
{
    CHexDigits digits{};
    for (int c = -128; c < 128; c++) {
        const UINT8 index = static_cast<UINT8>(c);
        digits.IsDigit[index] = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
        digits.Nibble[index] = static_cast<UINT8>(c <= '9' ? c - '0' : c - 0x37);
    }
    return digits;
}

constexpr CHexDigits HexDigits = MakeHexDigits();

// kept: hex-second-digit (it may be any character)
UINT8 DecodePair(const UINT8* pPair)
{
    return static_cast<UINT8>(HexDigits.Nibble[pPair[0]] << 4 | HexDigits.Nibble[pPair[1]]);
}

BOOL Refuse(const char* pszReason, std::size_t offset)
{
    _DebugPrintf("CPowerMicro::HexWorker: %s (offset %04X)\n", pszReason, static_cast<unsigned int>(offset));
    return FALSE;
}

// Hands out the records of a text one by one, in a single pass.
class CHexReader
{
  public:
    CHexReader(const char* pText, int length)
        : m_pText(reinterpret_cast<const UINT8*>(pText)),
          m_Length(length > 0 ? static_cast<std::size_t>(length) : 0),
          m_Position(0)
    {
    }

    // Stores the next record, which is whole and has the right checksum. FALSE, after a line in the log, when there is
    // none.
    BOOL Read(CHexRecord& record)
    {
        SkipSpaceAndComments();
        if (m_Position >= m_Length) {
            _DebugPrintf("CPowerMicro::HexWorker: Missing EOF record\n");
            return FALSE;
        }
        record.Offset = m_Position;
        if (m_pText[m_Position++] != ':') return Refuse("Expected colon", record.Offset);

        UINT8 sum = 0;
        if (!Decode(record, sum)) return Refuse("Line too long", record.Offset);
        if (sum != 0) return Refuse("Invalid checksum", record.Offset);
        if (record.Count() != record.Size - CHexRecord::Overhead) return Refuse("Invalid record size", record.Offset);

        m_Position++;  // kept: hex-after-record (nobody looks at that character)
        return TRUE;
    }

  private:
    void SkipSpaceAndComments()
    {
        while (m_Position < m_Length) {
            if (m_pText[m_Position] == ';')
                while (m_Position < m_Length && m_pText[m_Position] != '\r' && m_pText[m_Position] != '\n')
                    m_Position++;
            else if (std::isspace(m_pText[m_Position]))
                m_Position++;
            else
                break;
        }
    }

    // Decodes pairs of digits and sums the bytes up; FALSE when they are too many.
    BOOL Decode(CHexRecord& record, UINT8& sum)
    {
        // Locals: members would be read anew after every byte that is stored.
        const UINT8* pPair = m_pText + m_Position;
        const UINT8* const pEnd = m_pText + m_Length;
        int size = 0;
        int total = 0;
        for (; pPair < pEnd && HexDigits.IsDigit[*pPair]; pPair += 2) {
            if (size == CHexRecord::MaxSize) return FALSE;
            if (pPair + 1 == pEnd) break;  // half a pair at the end of the text is none
            const UINT8 byte = DecodePair(pPair);
            record.Bytes[size++] = byte;
            total += byte;
        }
        record.Size = size;
        sum = static_cast<UINT8>(total);
        m_Position = static_cast<std::size_t>(pPair - m_pText);
        return TRUE;
    }

    const UINT8* m_pText;
    std::size_t m_Length;
    std::size_t m_Position;  // may stand one past the end
};

// The binary image that takes the extracted data. Without a buffer it takes none.
class CHexImage
{
  public:
    CHexImage(UINT8* pBuffer, int size) : m_pBuffer(size != 0 ? pBuffer : nullptr), m_Size(size), m_ExtendedAddress(0)
    {
        if (m_pBuffer && size > 0) std::memset(m_pBuffer, 0, static_cast<std::size_t>(size));
    }

    void SetExtendedAddress(int address) { m_ExtendedAddress = address; }

    // FALSE when the data does not fit. Data above the first 64 KiB is passed over.
    BOOL Store(const CHexRecord& record)
    {
        if (!m_pBuffer || record.Count() == 0 || m_ExtendedAddress != 0) return TRUE;
        if (record.Address() + record.Count() >= m_Size) return FALSE;  // kept: hex-last-byte
        std::memcpy(m_pBuffer + record.Address(), record.Data(), static_cast<std::size_t>(record.Count()));
        return TRUE;
    }

  private:
    UINT8* m_pBuffer;
    int m_Size;  // bytes
    int m_ExtendedAddress;
};

}  // namespace

BOOL CPowerMicro::HexWorker(const char* pHexImage, int ImageLength, BOOL bUpload, UINT8* pBinaryImageBuffer,
                            int BinaryImageBufferSize)
{
    CHexImage image(pBinaryImageBuffer, BinaryImageBufferSize);
    CHexReader reader(pHexImage, ImageLength);
    CHexRecord record = {};
    while (reader.Read(record)) {
        switch (record.Type()) {
            case HexRecordType_EndOfFile:
                _DebugPrintf("CPowerMicro::HexWorker: All done!\n");
                return TRUE;
            case HexRecordType_Data:
                if (!image.Store(record)) return Refuse("Address outside of image buffer", record.Offset);
                break;
            case HexRecordType_ExtendedLinearAddress:
                image.SetExtendedAddress(record.DataByte(0) << 8 | record.DataByte(1));
                break;
            default:
                _DebugPrintf("CPowerMicro::HexWorker: Unexpected type %02X record (offset %04X)\n",
                             static_cast<unsigned int>(record.Type()), static_cast<unsigned int>(record.Offset));
                return FALSE;
        }
        if (bUpload && WriteData(record.Bytes, record.Size) != 0) return Refuse("Upload failed", record.Offset);
    }
    return FALSE;
}
