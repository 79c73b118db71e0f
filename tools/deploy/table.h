// Tables on the screen.
#pragma once

#include <string>
#include <vector>

#include "tools/deploy/screen.h"

// Where a column goes when the table is too wide for the screen.
enum Narrow
{
    Narrow_Keep,
    Narrow_Above,  // its text stands above the row
    Narrow_Below,  // it stands below the row, behind its title
};

struct Column
{
    std::string Title;
    ::Narrow Narrow = Narrow_Keep;
    bool Coloured = false;  // in the colour of its row
    int Width = 0;          // at least
};

struct Row
{
    std::vector<std::string> Cells;  // an empty one shows as "-"
    std::string Note;                // sentences, which stand below the row
    ::Colour Colour = Colour_None;
};

// The lines of a table that fits the screen: what makes it too wide leaves the columns, the first that may and then the
// last ones. No cell is broken.
std::string TableText(const CScreen& screen, const std::vector<Column>& columns, const std::vector<Row>& rows);

// The same piece by piece, for rows that are shown as they come: the head, and a row. Columns have the width that they
// are given; a row that does not fit has more of its own below it.
std::string TableHead(const CScreen& screen, const std::vector<Column>& columns);
std::string TableRow(const CScreen& screen, const std::vector<Column>& columns, const Row& row);
