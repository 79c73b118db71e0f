// Reads settings files: sections in square brackets, with lines of name=value.
#pragma once

#include "types.h"
#include "zalph/arrays.h"
#include "zalph/str.h"

// An array that owns copies of its items.
template <typename Item>
class FLASHLIB_API CINIArray : public CBaseArray
{
  public:
    CINIArray();
    // Copies copy the items too.
    CINIArray(const CINIArray& other);
    CINIArray& operator=(const CINIArray& other);
    ~CINIArray();

    void Add(Item item);  // appends a copy
    // A copy of the item at index, an empty item when index is out of range.
    Item GetAt(int index) const;
    Item operator[](int index) const;
    // The first item of that name, regardless of case; null when there is none. The array's own.
    const Item* Find(const CStr& name) const;
    void RemoveAll();

  private:
    void AddAll(const CINIArray& other);
};

// A line of a section. Blanks are spaces only: tabs stay.
class FLASHLIB_API CINIKey
{
  public:
    // Takes the line as it stands.
    CINIKey(const CStr& line);
    CINIKey(const CINIKey& other);
    CINIKey& operator=(const CINIKey& other);

    CStr GetKeyString() const;  // the whole line
    // What is before, behind the first '=', without blanks around it. A line without '=' is all value.
    CStr GetName() const;
    CStr GetValue() const;
    // The piece of the value at index, counted from 0, between separators of one character, without blanks around it;
    // empty when there are fewer. Of a longer separator all but the first character stay with the next piece.
    CStr GetTerm(int index, const CStr& separator) const;

  private:
    CStr m_sKey;
};

// Lookups regard no case and return the first of several keys of a name, an empty key when there is none.
class FLASHLIB_API CINISection
{
  public:
    // The keys of a section.
    using CINIKeyArray = CINIArray<CINIKey>;

    // A section without keys so far.
    CINISection(const CStr& name);
    // Copies copy the keys too.
    CINISection(const CINISection& other);
    CINISection& operator=(const CINISection& other);
    ~CINISection();

    // Its name and its keys; an index counts from 0.
    CStr GetName() const;
    int GetNumKeys() const;
    CINIKey GetKey(int index) const;
    CINIKey GetKey(const CStr& name) const;
    BOOL KeyExists(const CStr& name) const;
    // Appends.
    void AddKey(CINIKey key);

  private:
    CINIKeyArray m_keyArray;
    CStr m_sName;  // what is between the brackets, blanks and all
};

// The sections of a file, read when the object is made. Nothing is written back. A file that can't be read has no
// sections. Lookups regard no case and return the first of several of a name; what is absent is empty.
class FLASHLIB_API CINIFile
{
  public:
    // The sections of a file.
    using CINISectionArray = CINIArray<CINISection>;

    CINIFile(const CStr& path);  // reads the file

    BOOL IsValid() const;  // the file could be opened
    // Sections and keys; an index counts from 0.
    int GetNumSections() const;
    CINISection GetSection(int index) const;
    CINISection GetSection(const CStr& name) const;
    BOOL SectionExists(const CStr& name) const;
    CINIKey GetKey(const CStr& section, const CStr& key) const;
    CStr GetKeyValue(const CStr& section, const CStr& key) const;
    // Name of the first section with a key of that name.
    CStr FindSectionWithKeyName(const CStr& key) const;

  protected:
    // Adds the file's sections. A line of more than 1023 characters counts as several. Lines that begin with ';' are
    // comments. A section counts only when another follows or its last key is the file's last line: the last section of
    // a file that ends in an empty line or a comment is dropped.
    void ReadFile();

  private:
    CINISectionArray m_sectionArray;
    BOOL m_bFileExists;
    CStr m_sName;
};
