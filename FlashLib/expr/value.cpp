#include <cstdlib>
#include <cstring>

#include "expr.h"

void CExprValue::FreeText()
{
    std::free(Value.pszString);
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
