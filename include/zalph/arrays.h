// Small ordered collections.
#pragma once

#include "types.h"
#include "zalph/str.h"

// Pointers in the order in which they were added, in a chain that every call walks from its head: for short lists.
class FLASHLIB_API CBaseArray
{
  public:
    CBaseArray();
    ~CBaseArray();
    CBaseArray(const CBaseArray&) = delete;
    CBaseArray& operator=(const CBaseArray&) = delete;

    // Appends; null is ignored.
    void Add(PVOID data);
    // The pointer at index, counted from 0; null when index is out of range.
    PVOID operator[](int index) const;
    // Number of elements.
    int GetSize() const;
    // Empties the array. No array here releases what its pointers point to.
    void RemoveAll();

  protected:
    // A link of the chain.
    struct CBaseArrayElement
    {
        PVOID m_pData;                      // not owned
        CBaseArrayElement* m_pNextElement;  // null at the end
    };

    int m_nSize;                         // elements
    CBaseArrayElement* m_pFirstElement;  // null when empty
};

// In all of these GetAt is the same as [].

// Pointers that stay the caller's.
class FLASHLIB_API CPointerArray : public CBaseArray
{
  public:
    void Add(PVOID data);  // appends; null is ignored
    // The pointer at index; null when index is out of range.
    PVOID operator[](int index) const;
    PVOID GetAt(int index) const;
};

// Keeps each integer in memory of its own, which stays when the array goes. An index must be in range.
class FLASHLIB_API CIntegerArray : public CBaseArray
{
  public:
    void Add(int value);  // appends
    // The value at index.
    int operator[](int index) const;
    int GetAt(int index) const;
};

// Keeps a copy of each string, which stays when the array goes. An index must be in range.
class FLASHLIB_API CStrArray : public CBaseArray
{
  public:
    void Add(CStr text);  // appends a copy
    // A copy of the string at index.
    CStr operator[](int index) const;
    CStr GetAt(int index) const;
};
