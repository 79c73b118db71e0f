// Integer expressions over named values and functions, as applicability rules use them.
#pragma once

#include "types.h"

class CExprLexer;
class CExprParser;
struct CSymbol;

// What a CExprValue holds.
enum ValueType
{
    Type_Unknown = 0,
    Type_EOF = 1,
    Type_Token = 2,
    Type_Integer = 3,
    Type_String = 4,
    Type_Identifier = 5,
    Type_Symbol = 6
};

// What Type_Token values are: the operators and separators.
enum TokenType
{
    Token_Unknown = 0,
    Token_LeftParen = 1,     // (
    Token_RightParen = 2,    // )
    Token_LeftBracket = 3,   // [
    Token_RightBracket = 4,  // ]
    Token_Colon = 5,         // :
    Token_Comma = 6,         // ,
    Token_DollarSign = 7,    // $
    Token_Assignment = 8,    // =
    Token_Plus = 9,
    Token_Minus = 10,
    Token_Asterisk = 11,
    Token_Slash = 12,
    Token_Percent = 13,
    Token_BitAND = 14,              // &
    Token_BitOR = 15,               // |
    Token_BitXOR = 16,              // ^
    Token_BitNOT = 17,              // ~
    Token_BooleanAND = 18,          // &&
    Token_BooleanOR = 19,           // ||
    Token_BooleanNOT = 20,          // !
    Token_LeftShift = 21,           // <<
    Token_RightShift = 22,          // >>
    Token_Equal = 23,               // ==
    Token_NotEqual = 24,            // !=
    Token_LessThan = 25,            // <
    Token_LessThanOrEqual = 26,     // <=
    Token_GreaterThan = 27,         // >
    Token_GreaterThanOrEqual = 28,  // >=
};

// The result of every evaluation.
enum ExprErrorType
{
    ExprError_None = 0,
    ExprError_Empty = 1,     // the expression, or an argument, is empty
    ExprError_Syntax = 2,    // unexpected token, unknown function, missing parenthesis, text left over, nested too deep
    ExprError_Type = 3,      // an operand or the result is no integer
    ExprError_Range = 4,     // a function's argument is out of its range
    ExprError_Variable = 5,  // $ without the name of a defined symbol
    ExprError_Runtime = 6    // a function could not read its value, or there is no memory for a chain this long
};

// A token or a value. Owns its text, which is malloc memory, when it is a string or an identifier.
class FLASHLIB_API CExprValue
{
  public:
    CExprValue();
    CExprValue(const CExprValue& other);             // a copy, with a text of its own
    CExprValue& operator=(const CExprValue& other);  // copies an owned text
    ~CExprValue();

    void Clear();  // makes it Type_Unknown

    // Keeps the low 32 bits.
    void SetInteger(long value)
    {
        Clear();
        Type = Type_Integer;
        Value.Integer = static_cast<std::int32_t>(value);
    }
    void SetString(const char* text);         // a copy of text
    void SetStringPointer(const char* text);  // text itself, malloc memory that the value owns from now on

    // TRUE when it is of that type, that token.
    BOOL IsEOF() const { return Type == Type_EOF; }
    BOOL IsToken() const { return Type == Type_Token; }
    BOOL IsToken(TokenType token) const { return Type == Type_Token && Value.Token == token; }
    BOOL IsInteger() const { return Type == Type_Integer; }
    BOOL IsString() const { return Type == Type_String; }
    BOOL IsIdentifier() const { return Type == Type_Identifier; }

    void Print() const;  // does nothing: a hook

    // What the value is; Type says which member of Value counts.
    ValueType Type;
    union
    {
        TokenType Token;
        std::int32_t Integer;
        char* pszIdentifier;
        char* pszString;
        CSymbol* pSymbol;
    } Value;
};

// A named value: a node of a symbol table.
struct CSymbol
{
    // Node of a chain; the table owns all of it.
    char* pszName;
    CExprValue Value;
    CSymbol* pNext;
};

// The values that expressions reach as $name, regardless of case. Owns its symbols. A new definition of a name hides
// the older ones, which stay until Clear.
class FLASHLIB_API CSymbolTable
{
  public:
    CSymbolTable();
    ~CSymbolTable();
    CSymbolTable(const CSymbolTable&) = delete;
    CSymbolTable& operator=(const CSymbolTable&) = delete;

    // Returns a new symbol, Type_Unknown so far.
    CSymbol* Add(const char* name);
    // Returns the newest symbol of that name, null when there is none.
    CSymbol* Lookup(const char* name) const;
    void DefineIntegerSymbol(const char* name, long value);
    void DefineStringSymbol(const char* name, const char* text);  // a copy of text
    void Clear();

    CSymbol* pFirst;  // the newest
};

// Cuts an expression into tokens. The text stays the caller's and must outlive the lexer. What is no token shows as
// Type_Unknown in Current, with pszExpression at the character that does not fit.
class FLASHLIB_API CExprLexer
{
  public:
    // Reads nothing yet: the first GetNext does. A null text counts as empty.
    explicit CExprLexer(const char* text);
    ~CExprLexer();

    // Reads the next token into Current; Type_EOF at the end.
    void GetNext();
    BOOL IsEOF() const;
    // Reads the next token and returns TRUE when Current is that token, else FALSE.
    BOOL EatToken(TokenType token);

    CExprValue Current;         // the token just read
    const char* pszExpression;  // behind it

  private:
    void SetToken(TokenType token, int length);
    void SetText(ValueType type, const char* start, const char* end);
    void ReadOperator();
    void ReadString();
    void ReadIdentifier();
    void ReadNumber();
};

// A function of a host's table. Called with the lexer on the token behind the function's name; reads its own arguments,
// stores its value in result and leaves the lexer behind its closing parenthesis. context is the table row's,
// parserContext the one that the parser was made with.
using EXPR_FUNCTION_CALLBACK = ExprErrorType (*)(CExprLexer& lexer, CExprParser& parser, CExprValue* result,
                                                 void* context, void* parserContext);

// A row of a host's function table, which ends with a row whose name is null. Names match regardless of case.
struct CExprFunction
{
    // Name, function, and what the function gets as its context.
    const char* pszName;
    EXPR_FUNCTION_CALLBACK pfnCallback;
    void* Context;
};

// Evaluates while it parses. Binary operators group to the right (a - b - c is a - (b - c)), a unary operator applies
// to the whole rest of the expression (-1 + 2 is -3), and both sides of && and || are always evaluated. Integers are
// 32-bit and signed: arithmetic wraps, a shift count is taken modulo 32, a right shift keeps the sign. Division by
// zero, and of the most negative value by -1, is a fault of the process. A chain of one level's operators, as in a + b
// - c, may have any length; its operators are applied when all its operands are evaluated, the last one first.
class FLASHLIB_API CExprParser
{
  public:
    // How deep an expression may nest; a deeper one is ExprError_Syntax. One deeper is what stands in parentheses or in
    // an argument list, or behind a unary operator.
    static constexpr int MaxNesting = 1000;

    // symbols may be null, functions may not.
    CExprParser(CExprLexer& lexer, CSymbolTable* symbols, CExprFunction* functions, void* context);

    // Evaluates one expression from the lexer's current token on, up to the first token that can't continue it. Stores
    // its value, integer or string, in result.
    ExprErrorType Parse(CExprValue* result);

    // What it was made with; not owned.
    CExprLexer& Lexer;
    CSymbolTable* pSymbolTable;
    CExprFunction* pFunctionList;
    void* Context;

  private:
    using LEVEL = ExprErrorType (CExprParser::*)(CExprValue* result);

    ExprErrorType Level1(CExprValue* result);   // ||
    ExprErrorType Level2(CExprValue* result);   // &&
    ExprErrorType Level3(CExprValue* result);   // |
    ExprErrorType Level4(CExprValue* result);   // ^
    ExprErrorType Level5(CExprValue* result);   // &
    ExprErrorType Level6(CExprValue* result);   // == !=
    ExprErrorType Level7(CExprValue* result);   // < <= > >=
    ExprErrorType Level8(CExprValue* result);   // << >>
    ExprErrorType Level9(CExprValue* result);   // + -
    ExprErrorType Level10(CExprValue* result);  // * / %
    ExprErrorType Level11(CExprValue* result);  // unary + - ~ !
    ExprErrorType Level12(CExprValue* result);  // literal, parentheses, $name, function

    template <LEVEL Operand, TokenType... Operators>
    ExprErrorType BinaryLevel(CExprValue* result);
    ExprErrorType Chain(CExprValue* result, LEVEL operand, bool (*isOperator)(const CExprValue& token));
    ExprErrorType Nested(CExprValue* result);
    ExprErrorType Symbol(CExprValue* result);
    ExprErrorType Function(CExprValue* result);

    int m_nNesting;
};

// Reads a function's arguments, "( index [, low [: high]] )": the index of a register byte, 0 to 255, and its bits low
// to high, 0 to 7. One bit alone is low and high; without bits they are 0 and 7. Leaves the lexer behind the
// parenthesis.
FLASHLIB_API ExprErrorType GetByteAndBits(CExprLexer& lexer, CExprParser& parser, int& index, int& low, int& high);

// Evaluates a whole text. Returns an ExprErrorType; stores the value in *result, 0 on failure. symbols may be null;
// functions is a table with at least the ending row; context reaches every function as its last argument.
FLASHLIB_API int EvaluateIntegerExpression(const char* text, long* result, CSymbolTable* symbols,
                                           CExprFunction* functions, void* context);

// Functions for a host's table. They read through the management processor's channel, a CChannelInterface* in the row's
// Context. Without a channel, or when the read fails: ExprError_Runtime, after the arguments were read.

// ( index [, low [: high]] ): bits low to high of a byte of the memory identification, of a programmable logic device.
FLASHLIB_API ExprErrorType ExprFunc_MemID(CExprLexer& lexer, CExprParser& parser, CExprValue* result, void* context,
                                          void* parserContext);
FLASHLIB_API ExprErrorType ExprFunc_CPLD(CExprLexer& lexer, CExprParser& parser, CExprValue* result, void* context,
                                         void* parserContext);
FLASHLIB_API ExprErrorType ExprFunc_XPLD(CExprLexer& lexer, CExprParser& parser, CExprValue* result, void* context,
                                         void* parserContext);

// ( n ): the general-purpose input n, 0 to 63; 0 or 1.
FLASHLIB_API ExprErrorType ExprFunc_GPI(CExprLexer& lexer, CExprParser& parser, CExprValue* result, void* context,
                                        void* parserContext);
