#pragma once

#include "lab/score/Align.h"
#include "lab/score/Compare.h"
#include "lab/score/Input.h"

#include <string>
#include <vector>

// How well a device detected the beats: its annotations compared with the reference's, beat by
// beat. docs/scoring.md states each rule with its clause.
namespace lab::score {

struct ScoreRequest {
    std::string reference; // two files or two folders
    std::string test;
    std::string referenceSuffix = "atr"; // which files of a folder count
    std::string testSuffix = "atr";
    Rules rules;
    bool aligns = false;           // finds offset and clock of each record instead of taking them
    bool keepsComparisons = false; // for pictures of the disagreements
    std::string version;           // version of the program that computes the figures
};

struct RecordScore {
    Input input;
    Rational offset;   // offset and clock used in the comparison, given or found
    Rational clockPpm; // likewise
    Figures figures;
    std::optional<Alignment> alignment; // when it was requested
    Comparison comparison;              // empty unless kept
};

struct ScoreResult {
    ScoreRequest request; // under which conditions
    std::vector<RecordScore> records;
    Figures gross;     // the sum of all records' counts
    Fractions average; // for each fraction, the mean over the records in which it is defined
    std::vector<std::string> remarks; // warnings for the user
};

// Reads and compares. Fails with status 2, naming the file, when a file cannot be used or, where
// alignment was requested, cannot be aligned.
ScoreResult ScoreFiles(const ScoreRequest& request);

// A fraction from 0 to 1 by its name: "qrs_se", "veb_fpr", "s_couplet_ppv" ... of all records
// together, or with "average_" before it the mean over the records. Nothing where it is undefined
// or the name is unknown.
std::optional<double> Figure(const ScoreResult& result, const std::string& name);
bool IsFigure(const std::string& name);

// A limit's name is a figure's with "_min" or "_max" after it.
struct Limit {
    std::string figure;
    bool isLeast = false; // "_min"
};
std::optional<Limit> ParseLimit(const std::string& name);

} // namespace lab::score
