#include "zalph/inifile.h"

#include <cstring>

#include "../handles.h"

namespace
{

// kept: blanks-are-spaces
CStr Trimmed(CStr text)
{
    text.TrimLeft(' ');
    text.TrimRight(' ');
    return text;
}

// The next line; false at the end of the file.
bool ReadLine(const CFile& file, CStr& line)
{
    char szLine[1024];  // kept: long-lines
    if (!std::fgets(szLine, sizeof szLine, file.get())) return false;
    line = Trimmed(szLine + std::strspn(szLine, " "));  // kept: spaces-before-line-end
    line.TrimRight('\n');
    line.TrimRight('\r');
    return true;
}

bool IsHeader(const CStr& line)
{
    return line[0] == '[' && line[line.GetLength() - 1] == ']';
}

}  // namespace

template <typename Item>
CINIArray<Item>::CINIArray() = default;

template <typename Item>
CINIArray<Item>::~CINIArray()
{
    RemoveAll();
}

template <typename Item>
CINIArray<Item>::CINIArray(const CINIArray& other) : CBaseArray()
{
    AddAll(other);
}

template <typename Item>
CINIArray<Item>& CINIArray<Item>::operator=(const CINIArray& other)
{
    if (this != &other) {
        RemoveAll();
        AddAll(other);
    }
    return *this;
}

template <typename Item>
void CINIArray<Item>::Add(Item item)
{
    CBaseArray::Add(new Item(item));
}

// Adds to an empty array, without walking it for every item.
template <typename Item>
void CINIArray<Item>::AddAll(const CINIArray& other)
{
    CBaseArrayElement** ppEnd = &m_pFirstElement;
    for (const CBaseArrayElement* pElement = other.m_pFirstElement; pElement; pElement = pElement->m_pNextElement) {
        *ppEnd = new CBaseArrayElement{new Item(*static_cast<const Item*>(pElement->m_pData)), nullptr};
        ppEnd = &(*ppEnd)->m_pNextElement;
    }
    m_nSize = other.m_nSize;
}

template <typename Item>
Item CINIArray<Item>::GetAt(int index) const
{
    const Item* pItem = static_cast<const Item*>(CBaseArray::operator[](index));
    return pItem ? *pItem : Item("");
}

template <typename Item>
Item CINIArray<Item>::operator[](int index) const
{
    return GetAt(index);
}

template <typename Item>
const Item* CINIArray<Item>::Find(const CStr& name) const
{
    for (const CBaseArrayElement* pElement = m_pFirstElement; pElement; pElement = pElement->m_pNextElement) {
        const Item* pItem = static_cast<const Item*>(pElement->m_pData);
        if (pItem->GetName().CompareNoCase(name)) return pItem;  // kept: first-of-a-name
    }
    return nullptr;
}

template <typename Item>
void CINIArray<Item>::RemoveAll()
{
    for (const CBaseArrayElement* pElement = m_pFirstElement; pElement; pElement = pElement->m_pNextElement)
        delete static_cast<Item*>(pElement->m_pData);
    CBaseArray::RemoveAll();
}

template class CINIArray<CINIKey>;
template class CINIArray<CINISection>;

CINIKey::CINIKey(const CStr& line) : m_sKey(line) {}

CINIKey::CINIKey(const CINIKey& other) = default;

CINIKey& CINIKey::operator=(const CINIKey& other) = default;

CStr CINIKey::GetKeyString() const
{
    return m_sKey;
}

CStr CINIKey::GetName() const
{
    return Trimmed(m_sKey.Left(m_sKey.Find("=")));
}

CStr CINIKey::GetValue() const
{
    return Trimmed(m_sKey.Mid(m_sKey.Find("=") + 1));
}

CStr CINIKey::GetTerm(int index, const CStr& separator) const
{
    if (separator.IsEmpty()) return "";
    CStr rest = GetValue();
    int n = 0;
    for (int position = rest.Find(separator); position >= 0; position = rest.Find(separator), n++) {
        if (n == index) return Trimmed(rest.Left(position));
        rest = Trimmed(rest.Mid(position + 1));  // kept: long-separator
    }
    return n == index ? rest : CStr();
}

CINISection::CINISection(const CStr& name) : m_sName(name) {}

CINISection::CINISection(const CINISection& other) = default;

CINISection& CINISection::operator=(const CINISection& other) = default;

CINISection::~CINISection() = default;

CStr CINISection::GetName() const
{
    return m_sName;
}

int CINISection::GetNumKeys() const
{
    return m_keyArray.GetSize();
}

CINIKey CINISection::GetKey(int index) const
{
    return m_keyArray[index];
}

BOOL CINISection::KeyExists(const CStr& name) const
{
    return m_keyArray.Find(name) != nullptr;
}

void CINISection::AddKey(CINIKey key)
{
    m_keyArray.Add(key);
}

CINIKey CINISection::GetKey(const CStr& name) const
{
    const CINIKey* pKey = m_keyArray.Find(name);
    return pKey ? *pKey : CINIKey("");
}

CINIFile::CINIFile(const CStr& path) : m_bFileExists(FALSE), m_sName(path)
{
    if (!m_sName.IsEmpty()) ReadFile();
}

void CINIFile::ReadFile()
{
    if (m_sName.IsEmpty()) return;
    const CFile file(std::fopen(m_sName.GetAnsiString(), "r"));
    if (!file) return;
    m_bFileExists = TRUE;

    CINISection section("");
    bool open = false;       // a header has been read
    bool endsInKey = false;  // the last line was a key of the section
    for (CStr line; ReadLine(file, line);) {
        endsInKey = false;
        if (line.IsEmpty() || line[0] == ';') continue;
        if (IsHeader(line)) {
            if (open) m_sectionArray.Add(section);
            section = CINISection(line.Mid(1, line.GetLength() - 2));
            open = true;
        } else if (open) {
            section.AddKey(line);
            endsInKey = true;
        }
    }
    if (endsInKey) m_sectionArray.Add(section);  // kept: last-section
}

BOOL CINIFile::IsValid() const
{
    return m_bFileExists;
}

int CINIFile::GetNumSections() const
{
    return m_sectionArray.GetSize();
}

CINISection CINIFile::GetSection(int index) const
{
    return m_sectionArray[index];
}

BOOL CINIFile::SectionExists(const CStr& name) const
{
    return m_sectionArray.Find(name) != nullptr;
}

CINISection CINIFile::GetSection(const CStr& name) const
{
    const CINISection* pSection = m_sectionArray.Find(name);
    return pSection ? *pSection : CINISection("");
}

CINIKey CINIFile::GetKey(const CStr& section, const CStr& key) const
{
    const CINISection* pSection = m_sectionArray.Find(section);
    return pSection ? pSection->GetKey(key) : CINIKey("");
}

CStr CINIFile::GetKeyValue(const CStr& section, const CStr& key) const
{
    return GetKey(section, key).GetValue();
}

CStr CINIFile::FindSectionWithKeyName(const CStr& key) const
{
    for (int i = 0; i < GetNumSections(); i++) {
        const CINISection section = GetSection(i);
        if (section.KeyExists(key)) return section.GetName();
    }
    return "";
}
