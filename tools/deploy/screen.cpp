#include "tools/deploy/screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/output.h"

namespace
{

const int DefaultWidth = 80;
const int MinWidth = 40;

bool IsSet(const char* variable)
{
    const char* pszValue = std::getenv(variable);
    return pszValue && *pszValue;
}

bool IsDumb()
{
    const char* pszTerminal = std::getenv("TERM");
    return !pszTerminal || std::strcmp(pszTerminal, "dumb") == 0;
}

bool ContinuesCharacter(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// The first so many columns of the text.
std::string Cut(const std::string& text, int columns)
{
    std::size_t end = 0;
    while (end < text.size() && (ContinuesCharacter(text[end]) || columns-- > 0)) end++;
    return text.substr(0, end);
}

}  // namespace

int Columns(const std::string& text)
{
    return static_cast<int>(std::count_if(text.begin(), text.end(), [](char c) { return !ContinuesCharacter(c); }));
}

std::string Wrap(const std::string& text, int indentation, int width)
{
    const std::string margin(static_cast<std::size_t>(indentation), ' ');
    std::string result = margin;
    int column = indentation;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find(' ', start), text.size());
        const std::string word = text.substr(start, end - start);
        const bool first = column == indentation;
        if (!first && width > 0 && column + 1 + Columns(word) > width) {
            result.append("\n").append(margin).append(word);
            column = indentation + Columns(word);
        } else {
            result += (first ? "" : " ") + word;
            column += Columns(word) + (first ? 0 : 1);
        }
        start = end + 1;
    }
    return result;
}

CScreen::CScreen(const DeployOptions& options)
    : m_bPrints(!options.Json && !options.Quiet),
      m_bProblems(!options.Json),
      m_bQuiet(options.Quiet),
      m_bVerbose(options.Verbose),
      m_bTerminal(isatty(STDOUT_FILENO) != 0 && !IsDumb()),
      m_bLive(m_bTerminal && m_bPrints),
      m_bColours(m_bTerminal && !IsSet("NO_COLOR"))
{
}

int CScreen::WidthOf(int descriptor, bool isTerminal)
{
    winsize size = {};
    if (isTerminal && ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return std::max<int>(size.ws_col, MinWidth);
    const char* pszColumns = std::getenv("COLUMNS");
    const int columns = pszColumns ? std::atoi(pszColumns) : 0;
    if (columns > 0) return std::max(columns, MinWidth);
    return isTerminal ? DefaultWidth : 0;
}

std::string CScreen::Paint(const std::string& text, Colour colour) const
{
    static const char* const codes[] = {"", "32", "33", "31"};
    if (!m_bColours || colour == Colour_None) return text;
    return std::string("\033[") + codes[static_cast<int>(colour)] + "m" + text + "\033[0m";
}

void CScreen::Print(const std::string& line)
{
    if (!m_bPrints) return;
    Clear();
    std::printf("%s\n", line.c_str());
    FlushOutput();
}

void CScreen::PrintProblem(const std::string& line)
{
    if (!m_bProblems) return;
    Clear();
    std::printf("%s\n", line.c_str());
    FlushOutput();
}

void CScreen::Notice(const std::string& line)
{
    Clear();
    FlushOutput();
    std::fprintf(stderr, "%s\n", Wrap(line, 0, WidthOf(STDERR_FILENO, isatty(STDERR_FILENO) != 0)).c_str());
}

void CScreen::Ask(const std::string& question)
{
    std::printf("\n%s ", Wrap(question, 0, Width()).c_str());
    FlushOutput();
}

void CScreen::Begin(const std::string& label)
{
    m_Label = label;
    m_Start = std::chrono::steady_clock::now();
    Draw(label);
}

void CScreen::Draw(const std::string& text)
{
    if (!m_bLive) return;
    // A character in the last column would begin a line on some terminals.
    std::printf("\r%s\033[K", Cut(text, Width() - 1).c_str());
    FlushOutput();
    m_bDrawn = true;
}

void CScreen::End()
{
    Clear();
}

double CScreen::Elapsed() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_Start).count();
}

void CScreen::Clear()
{
    if (m_bDrawn) std::printf("\r\033[K");
    m_bDrawn = false;
}
