#include "zalph/commandline.h"

CCommandLine::CCommandLine(char* text) : m_sCommandLine(text)
{
    m_sCommandLine.TrimLeft(' ');
    m_sCommandLine.TrimRight(' ');
    Parse();
}

void CCommandLine::Parse()
{
    if (m_sCommandLine.IsEmpty()) return;
    CStr token;
    TCHAR previous = '\0';
    for (int i = 0; i <= m_sCommandLine.GetLength(); i++) {
        const TCHAR c = m_sCommandLine[i];  // NUL at the end
        if (c != ' ' && c != '\0') {        // kept: blanks-are-spaces
            token += c;
        } else if (previous != ' ') {
            m_sArgArray.Add(token);
            token.Empty();
        }
        previous = c;
    }
}

int CCommandLine::GetNumArgs() const
{
    return m_sArgArray.GetSize();
}

CStr CCommandLine::GetArg(int index) const
{
    return m_sArgArray[index];
}

CStr CCommandLine::GetArgOption(int index) const
{
    const CStr argument = GetArg(index);
    const int colon = argument.Find(":");
    return colon < 0 ? argument : argument.Left(colon);
}

CStr CCommandLine::GetArgParam(int index) const
{
    const CStr argument = GetArg(index);
    const int colon = argument.Find(":");
    return colon < 0 ? CStr() : argument.Mid(colon + 1);
}

BOOL CCommandLine::HasArgParam(int index) const
{
    return GetArg(index).Find(":") >= 0;
}

int CCommandLine::FindArg(CStr text) const
{
    for (int i = 0; i < GetNumArgs(); i++)
        if (GetArg(i) == text) return i;
    return -1;
}

int CCommandLine::FindArgOption(CStr option) const
{
    for (int i = 0; i < GetNumArgs(); i++)
        if (GetArgOption(i) == option) return i;
    return -1;
}

BOOL CCommandLine::VerifySyntax(CStr syntax) const
{
    for (int i = 0; i < GetNumArgs(); i++) {
        const CStr option = GetArgOption(i);
        if (syntax.Find(option) < 0) return FALSE;  // kept: loose-syntax
        if (HasArgParam(i) && (syntax.Find(option + ":") < 0 || GetArgParam(i).IsEmpty())) return FALSE;
    }
    return TRUE;
}
