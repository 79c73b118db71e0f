#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "expr.h"

CSymbolTable::CSymbolTable() : pFirst(nullptr) {}

CSymbolTable::~CSymbolTable()
{
    Clear();
}

CSymbol* CSymbolTable::Add(const char* name)
{
    CSymbol* pSymbol = new CSymbol;
    pSymbol->pszName = strdup(name);
    pSymbol->pNext = pFirst;  // kept: hidden-symbols
    pFirst = pSymbol;
    return pSymbol;
}

CSymbol* CSymbolTable::Lookup(const char* name) const
{
    CSymbol* pSymbol = pFirst;
    while (pSymbol && strcasecmp(pSymbol->pszName, name) != 0) pSymbol = pSymbol->pNext;
    return pSymbol;
}

void CSymbolTable::DefineIntegerSymbol(const char* name, long value)
{
    Add(name)->Value.SetInteger(value);
}

void CSymbolTable::DefineStringSymbol(const char* name, const char* text)
{
    Add(name)->Value.SetString(text);
}

void CSymbolTable::Clear()
{
    while (pFirst) {
        CSymbol* pSymbol = pFirst;
        pFirst = pSymbol->pNext;
        std::free(pSymbol->pszName);
        delete pSymbol;
    }
}
