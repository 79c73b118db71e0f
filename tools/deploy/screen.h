// What the operator sees while zaldeploy works.
#pragma once

#include <unistd.h>

#include <chrono>
#include <string>

#include "tools/deploy/options.h"

enum Colour
{
    Colour_None,
    Colour_Green,
    Colour_Yellow,
    Colour_Red,
};

// Columns on the screen of UTF-8 text.
int Columns(const std::string& text);

// The text in lines of at most so many columns, broken at blanks, each behind an indentation; 0: one line.
std::string Wrap(const std::string& text, int indentation, int width);

// Standard output. On a terminal the line at the bottom shows what goes on and is drawn anew in place.
class CScreen
{
  public:
    explicit CScreen(const DeployOptions& options);

    bool IsVerbose() const { return m_bVerbose; }
    bool IsQuiet() const { return m_bQuiet; }
    bool IsLive() const { return m_bLive; }

    // Columns of a line; 0: no limit.
    int Width() const { return WidthOf(STDOUT_FILENO, m_bTerminal); }

    // The text in a colour, where the terminal has colours and the operator has not said NO_COLOR.
    std::string Paint(const std::string& text, Colour colour) const;

    // Print a line; with --json neither does, with --quiet only what is a problem is printed.
    void Print(const std::string& line);
    void PrintProblem(const std::string& line);

    // Says something at once, on standard error, whatever the options are.
    void Notice(const std::string& line);

    // Asks a question on the terminal; the answer comes by standard input.
    void Ask(const std::string& question);

    // The line at the bottom: shows the label until it is drawn anew, and is gone at its end.
    void Begin(const std::string& label);
    void Draw(const std::string& text);
    void End();

    const std::string& Label() const { return m_Label; }

    // Seconds since Begin.
    double Elapsed() const;

  private:
    static int WidthOf(int descriptor, bool isTerminal);
    void Clear();

    bool m_bPrints;
    bool m_bProblems;
    bool m_bQuiet;
    bool m_bVerbose;
    bool m_bTerminal;
    bool m_bLive;
    bool m_bColours;
    bool m_bDrawn = false;  // something stands in the line at the bottom
    std::string m_Label;
    std::chrono::steady_clock::time_point m_Start;
};
