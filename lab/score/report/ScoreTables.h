#pragma once

#include "lab/score/Score.h"

#include <string>
#include <vector>

namespace lab::score {

// A table of texts. The last `totals` rows sum up those before.
struct Table {
    std::string title;
    std::vector<std::string> head;
    std::vector<std::vector<std::string>> rows;
    std::size_t totals = 0;
};

// The tables that every kind of report shows: the matrix of beats, and tables of beat figures, of
// runs and of fibrillation with one line per record, each with the gross and the average line.
// Percentages; "-" where a figure is undefined. Where clocks were found, also the clock of each
// record.
std::vector<Table> TablesOf(const ScoreResult& result);

// The conditions and the tables as plain text.
std::string TextOf(const ScoreResult& result);

} // namespace lab::score
