// Flashes a system ROM image and checks what was written.
#pragma once

#include <memory>

#include "component.h"
#include "flashtable.h"

// Runs the flash tables with a line for the user before each, and with the flash part read before and after: a part of
// another size is not touched, and what was written is compared. Knows what state it leaves the ROM in.
class CRomFlasher : public CFlashTable
{
  public:
    // Lines for the user go to logger; null: none.
    explicit CRomFlasher(PLOGFN logger) : m_pfnLogger(logger) {}

    // Loads the flash table of the running ROM; FALSE when there is none to be used.
    BOOL LoadTable();

    // The base's tables in its order, and the backup table before the erase and after the programming.
    BOOL DoFlash(CFwImage* image, BOOL isSps) override;

    // After a failure: what state the ROM is in and what to do.
    CStr GetRomState() const;

    BOOL IsTouched() const { return m_State != RomState_Untouched; }
    BOOL IsWritten() const { return m_State == RomState_Written; }

    // FALSE when the part could not be read back.
    BOOL IsVerified() const { return m_bVerified; }

  private:
    enum RomState
    {
        RomState_Untouched,
        RomState_Broken,   // erased, or written in part
        RomState_Written,  // written whole; only cleanup is missing
    };

    BOOL Run(FlashTable table, const char* step, BOOL isSps = FALSE);
    BOOL RunCleanupTables();
    int ReadPart(int expectedSize);
    BOOL CheckSize(const CFwImage& image);
    BOOL Verify(const CFwImage& image);
    BOOL FailWith(const CStr& message);
    void Show(const char* step) const;

    PLOGFN m_pfnLogger;
    RomState m_State = RomState_Untouched;
    BOOL m_bVerified = FALSE;
    std::unique_ptr<char[]> m_pPart;  // what was read last
};
