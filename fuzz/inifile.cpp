// A settings file: sections and keys, by index and by name.
#include "zalph/inifile.h"
#include "fuzz/fuzz.h"

const CStepBound StepBound = {10000, 5000};

void Fuzz(CInput& input)
{
    const CINIFile file(WriteFile("input.ini", input.Data(), input.Size()).c_str());
    REQUIRE(file.IsValid());
    for (int i = 0; i < file.GetNumSections() && i < 20; i++) {
        const CINISection section = file.GetSection(i);
        REQUIRE(file.SectionExists(section.GetName()));
        for (int k = 0; k < section.GetNumKeys() && k < 10; k++) {
            const CINIKey key = section.GetKey(k);
            REQUIRE(section.KeyExists(key.GetName()));
            file.FindSectionWithKeyName(key.GetName());
            file.GetKeyValue(section.GetName(), key.GetName());
            for (int term = 0; term < 4; term++) key.GetTerm(term, ",");
        }
    }
}
