#include "zalph/arrays.h"

CBaseArray::CBaseArray() : m_nSize(0), m_pFirstElement(nullptr) {}

CBaseArray::~CBaseArray()
{
    RemoveAll();
}

void CBaseArray::Add(PVOID data)
{
    if (!data) return;
    CBaseArrayElement** ppEnd = &m_pFirstElement;
    while (*ppEnd) ppEnd = &(*ppEnd)->m_pNextElement;
    *ppEnd = new CBaseArrayElement{data, nullptr};
    m_nSize++;
}

PVOID CBaseArray::operator[](int index) const
{
    if (!m_pFirstElement || index < 0 || index > m_nSize - 1) return nullptr;
    const CBaseArrayElement* pElement = m_pFirstElement;
    for (; index > 0 && pElement->m_pNextElement; index--) pElement = pElement->m_pNextElement;
    return pElement->m_pData;
}

int CBaseArray::GetSize() const
{
    return m_nSize;
}

void CBaseArray::RemoveAll()
{
    while (m_pFirstElement) {
        CBaseArrayElement* pElement = m_pFirstElement;
        m_pFirstElement = pElement->m_pNextElement;
        delete pElement;  // kept: array-data (m_pData stays)
    }
    m_nSize = 0;
}

void CPointerArray::Add(PVOID data)
{
    CBaseArray::Add(data);
}

PVOID CPointerArray::operator[](int index) const
{
    return CBaseArray::operator[](index);
}

PVOID CPointerArray::GetAt(int index) const
{
    return (*this)[index];
}

void CIntegerArray::Add(int value)
{
    CBaseArray::Add(new int(value));
}

int CIntegerArray::operator[](int index) const
{
    return *static_cast<const int*>(CBaseArray::operator[](index));
}

int CIntegerArray::GetAt(int index) const
{
    return (*this)[index];
}

void CStrArray::Add(CStr text)
{
    CBaseArray::Add(new CStr(text));
}

CStr CStrArray::operator[](int index) const
{
    return *static_cast<const CStr*>(CBaseArray::operator[](index));
}

CStr CStrArray::GetAt(int index) const
{
    return (*this)[index];
}
