#include <cstdlib>
#include <cstring>

#include "expr.h"

namespace
{

// Apart from Clear, which runs for every token: a value without a text is spared what this call needs.
[[gnu::noinline]] void FreeText(char* pszText)
{
    std::free(pszText);
}

}  // namespace

CExprValue::CExprValue() : Type(Type_Unknown)
{
    Value.pSymbol = nullptr;
}

CExprValue::CExprValue(const CExprValue& other) : CExprValue()
{
    *this = other;
}

CExprValue::~CExprValue()
{
    Clear();
}

void CExprValue::Clear()
{
    if (Type == Type_String || Type == Type_Identifier) FreeText(Value.pszString);
    Type = Type_Unknown;
    Value.pSymbol = nullptr;
}

CExprValue& CExprValue::operator=(const CExprValue& other)
{
    if (this == &other) return *this;
    switch (other.Type) {
        case Type_Token:
        case Type_Integer:
        case Type_Symbol:
            Clear();
            Value = other.Value;
            break;
        case Type_String:
        case Type_Identifier:
            SetString(other.Value.pszString);
            break;
        default:
            Clear();
            break;
    }
    Type = other.Type;
    return *this;
}

void CExprValue::SetString(const char* text)
{
    SetStringPointer(text ? strdup(text) : nullptr);
}

void CExprValue::SetStringPointer(const char* text)
{
    Clear();
    Type = Type_String;
    Value.pszString = const_cast<char*>(text);
}

void CExprValue::Print() const {}  // kept: print-hook
