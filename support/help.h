// The help of a program, for a terminal of 80 columns.
#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

// Folds what is too long. Lines of one paragraph are one text; an empty line ends it, and so does one that begins with
// two blanks: "  3  what status 3 means".
class CHelp : public CLI::Formatter
{
  public:
    std::string make_description(const CLI::App* pApp) const override
    {
        return Fold(CLI::Formatter::make_description(pApp), Width);
    }

    std::string make_footer(const CLI::App* pApp) const override
    {
        return Fold(CLI::Formatter::make_footer(pApp), Width);
    }

    std::string make_subcommand(const CLI::App* pApp) const override
    {
        std::ostringstream text;
        CLI::detail::format_help(text, pApp->get_name(), Beside(pApp->get_description()), column_width_);
        return text.str();
    }

    std::string make_option_desc(const CLI::Option* pOption) const override
    {
        return Beside(CLI::Formatter::make_option_desc(pOption));
    }

  private:
    static constexpr std::size_t Width = 79;

    std::string Beside(const std::string& text) const { return Fold(text, Width - column_width_); }

    static std::string Fold(const std::string& text, std::size_t width)
    {
        std::vector<std::string> paragraphs;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            const bool begins = paragraphs.empty() || paragraphs.back().empty() || line.empty() || IsItem(line);
            if (begins)
                paragraphs.push_back(line);
            else
                paragraphs.back() += " " + line.substr(line.find_first_not_of(' '));
        }
        std::string folded;
        for (const std::string& paragraph : paragraphs)
            folded += (folded.empty() ? "" : "\n") + FoldParagraph(paragraph, width);
        return folded + (!text.empty() && text.back() == '\n' ? "\n" : "");
    }

    static std::string FoldParagraph(const std::string& paragraph, std::size_t width)
    {
        if (paragraph.size() <= width) return paragraph;
        const std::size_t start = IsItem(paragraph) ? paragraph.find_first_not_of(' ', paragraph.find(' ', 2)) : 0;
        std::string folded = paragraph.substr(0, start);
        std::size_t column = start;
        std::istringstream words(paragraph.substr(start));
        for (std::string word; words >> word; column += word.size()) {
            if (column > start && column + 1 + word.size() > width) {
                folded += "\n" + std::string(start, ' ');
                column = start;
            }
            if (column > start) {
                folded += ' ';
                column++;
            }
            folded += word;
        }
        return folded;
    }

    static bool IsItem(const std::string& line) { return line.size() > 2 && line.find_first_not_of(' ') == 2; }
};
