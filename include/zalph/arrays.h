// Small ordered collections.
#pragma once

#include "types.h"
#include "zalph/str.h"

// Pointers in the order in which they were added, in a chain that every call walks from its head: for short lists.
class FLASHLIB_API CBaseArray
{
  public:
    CBaseArray() : m_nSize(0), m_pFirstElement(nullptr) {}
    ~CBaseArray() { RemoveAll(); }
    CBaseArray(const CBaseArray&) = delete;
    CBaseArray& operator=(const CBaseArray&) = delete;

    // Appends; null is ignored.
    void Add(PVOID data);
    // The pointer at index, counted from 0; null when index is out of range.
    PVOID operator[](int index) const;
    int GetSize() const { return m_nSize; }
    // Empties the array. What the pointers point to is never released, here and in every array below: intended.
    void RemoveAll();

  protected:
    struct CBaseArrayElement
    {
        PVOID m_pData;
        CBaseArrayElement* m_pNextElement;
    };

    int m_nSize;
    CBaseArrayElement* m_pFirstElement;
};

// In all of these GetAt is the same as [].

class FLASHLIB_API CPointerArray : public CBaseArray
{
  public:
    PVOID GetAt(int index) const { return (*this)[index]; }
};

// Keeps each integer in memory of its own, which stays when the array goes. An index must be in range.
class FLASHLIB_API CIntegerArray : public CBaseArray
{
  public:
    void Add(int value);
    int operator[](int index) const;
    int GetAt(int index) const { return (*this)[index]; }
};

// Keeps a copy of each string, which stays when the array goes. An index must be in range.
class FLASHLIB_API CStrArray : public CBaseArray
{
  public:
    void Add(CStr text);
    CStr operator[](int index) const;
    CStr GetAt(int index) const { return (*this)[index]; }
};
