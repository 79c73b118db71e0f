// Flashes a system ROM image and checks what was written.
#pragma once

#include "component.h"
#include "flashtable.h"

// Runs the flash tables with a line for the user before each, reads the flash part back, and knows what state it leaves
// the ROM in.
class CRomFlasher : public CFlashTable
{
  public:
    // Lines for the user go to logger; null: none.
    explicit CRomFlasher(PLOGFN logger) : m_pfnLogger(logger) {}

    // Loads the flash table of the running ROM; FALSE when there is none to be used.
    BOOL LoadTable();

    // As the base's, with the part read back into memory and compared before the cleanup tables run.
    BOOL DoFlash(CFwImage* image, BOOL isSps) override;

    // What state the ROM is in and what to do, after DoFlash or LoadTable failed.
    CStr GetRomState() const;

    // FALSE when the part could not be read back, so that nothing is known against what was written.
    BOOL IsVerified() const { return m_bVerified; }

    // TRUE once anything was erased.
    BOOL IsTouched() const { return m_State != RomState_Untouched; }

  private:
    enum RomState
    {
        RomState_Untouched,
        RomState_Broken,   // erased, or written in part
        RomState_Written,  // written whole; only cleanup is missing
    };

    BOOL Verify(CFwImage* image);
    BOOL FailTable(const char* message);
    void Show(const char* step) const;

    PLOGFN m_pfnLogger;
    RomState m_State = RomState_Untouched;
    BOOL m_bVerified = FALSE;
};
