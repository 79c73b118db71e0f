// Flashes a system ROM image and checks what was written.
#pragma once

#include <memory>

#include "component.h"
#include "flashtable.h"

// The steps of a flash, with a line for the user before each table. A step that fails returns FALSE and leaves its
// reason in GetErrorMessage.
class CRomFlasher : public CFlashTable
{
  public:
    // Lines for the user go to logger; null: none.
    explicit CRomFlasher(PLOGFN logger) : m_pfnLogger(logger) {}

    // Loads the flash table of the running ROM, makes the part ready, and reads it. A part of another size than the
    // image is left as it was found.
    BOOL Prepare(const CFwImage& image);

    // TRUE when the part, as it was read last, holds the image.
    BOOL Holds(const CFwImage& image) const;

    // Erases the part, programs the image and reads the part back. A part that can't be read back is none that fails.
    BOOL Program(CFwImage& image);

    // What was read last.
    const void* GetPart() const { return m_pPart.get(); }
    int GetPartSize() const { return m_PartSize; }  // bytes; 0: the part could not be read

    // Runs the cleanup tables that the firmware asks for.
    BOOL CleanUp();

  private:
    BOOL LoadTable();
    BOOL Run(FlashTable table, const char* step);
    void MakeRoom(const CFwImage& image);
    void ReadPart(const char* step);
    BOOL Fail(const CStr& reason);
    void Show(const char* step) const;

    PLOGFN m_pfnLogger;
    std::unique_ptr<char[]> m_pPart;  // what was read last
    DWORD m_Room = 0;                 // for it, in bytes
    int m_PartSize = 0;               // bytes; 0: the part could not be read
};
