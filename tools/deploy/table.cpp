#include "tools/deploy/table.h"

#include <algorithm>

namespace
{

const int Gap = 2;
const int NoteIndentation = 4;

class CTable
{
  public:
    CTable(const CScreen& screen, const std::vector<Column>& columns, const std::vector<Row>& rows)
        : m_Screen(screen), m_Columns(columns), m_Rows(rows), m_Width(screen.Width())
    {
        for (std::size_t i = 0; i < columns.size(); i++) {
            m_Widths.push_back(std::max(Columns(columns[i].Title), columns[i].Width));
            for (const Row& row : rows) m_Widths[i] = std::max(m_Widths[i], Columns(row.Cells[i]));
            m_Shown.push_back(true);
        }
        Fit();
    }

    std::string Head() const
    {
        Row head;
        Row rule;
        for (std::size_t i = 0; i < m_Columns.size(); i++) {
            head.Cells.push_back(m_Columns[i].Title);
            rule.Cells.emplace_back(IsLast(i) ? Columns(m_Columns[i].Title) : m_Widths[i], '-');
        }
        return Line(head) + Line(rule);
    }

    std::string Rows() const
    {
        std::string text;
        for (const Row& row : m_Rows) text += Above(row) + Line(row) + Below(row);
        return text;
    }

  private:
    // Takes columns out until the rest is not too wide.
    void Fit()
    {
        for (std::size_t i = 0; i < m_Columns.size(); i++) Remove(i, Narrow_Above);
        for (std::size_t i = m_Columns.size(); i-- > 0;) Remove(i, Narrow_Below);
    }

    void Remove(std::size_t i, Narrow narrow)
    {
        if (m_Columns[i].Narrow == narrow && IsTooWide()) m_Shown[i] = false;
    }

    bool IsTooWide() const
    {
        int width = Indentation() - Gap;
        for (std::size_t i = 0; i < m_Columns.size(); i++)
            if (m_Shown[i]) width += m_Widths[i] + Gap;
        return m_Width > 0 && width > m_Width;
    }

    bool IsLast(std::size_t i) const
    {
        return std::none_of(m_Shown.begin() + static_cast<std::ptrdiff_t>(i) + 1, m_Shown.end(),
                            [](bool b) { return b; });
    }

    // Of a row that has something above it.
    int Indentation() const { return m_Shown[0] ? 0 : Gap; }

    std::string Line(const Row& row) const
    {
        std::string line(static_cast<std::size_t>(Indentation()), ' ');
        for (std::size_t i = 0; i < row.Cells.size(); i++) {
            if (!m_Shown[i]) continue;
            const std::string cell = row.Cells[i].empty() ? "-" : row.Cells[i];
            const Colour colour = m_Columns[i].Coloured ? row.Colour : Colour_None;
            line += m_Screen.Paint(cell, colour);
            const int padding = m_Widths[i] - Columns(cell) + Gap;
            if (!IsLast(i)) line.append(static_cast<std::size_t>(padding), ' ');
        }
        return line + "\n";
    }

    std::string Above(const Row& row) const
    {
        std::string text;
        for (std::size_t i = 0; i < m_Columns.size(); i++)
            if (!m_Shown[i] && m_Columns[i].Narrow == Narrow_Above) text += Wrap(row.Cells[i], 0, m_Width) + "\n";
        return text;
    }

    std::string Below(const Row& row) const
    {
        std::string text;
        for (std::size_t i = 0; i < m_Columns.size(); i++)
            if (!m_Shown[i] && m_Columns[i].Narrow == Narrow_Below && !row.Cells[i].empty())
                text += Wrap(m_Columns[i].Title + ": " + row.Cells[i], NoteIndentation, m_Width) + "\n";
        if (!row.Note.empty()) text += Wrap(row.Note, NoteIndentation, m_Width) + "\n";
        return text;
    }

    const CScreen& m_Screen;
    const std::vector<Column>& m_Columns;
    const std::vector<Row> m_Rows;
    const int m_Width;
    std::vector<int> m_Widths;
    std::vector<bool> m_Shown;
};

// Of the last line.
std::string WithoutEnd(std::string text)
{
    text.pop_back();
    return text;
}

}  // namespace

std::string TableText(const CScreen& screen, const std::vector<Column>& columns, const std::vector<Row>& rows)
{
    const CTable table(screen, columns, rows);
    return WithoutEnd(table.Head() + table.Rows());
}

std::string TableHead(const CScreen& screen, const std::vector<Column>& columns)
{
    return WithoutEnd(CTable(screen, columns, {}).Head());
}

std::string TableRow(const CScreen& screen, const std::vector<Column>& columns, const Row& row)
{
    return WithoutEnd(CTable(screen, columns, {row}).Rows());
}
