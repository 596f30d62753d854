#pragma once

// The format table as engineers exchange it (FORMATS_FILE) and the tables and sentences of
// docs/video-formats.md (FORMATS_DOCUMENT); link with `format_files`.

#include <cstdint>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

struct Row {
    uint32_t id;
    std::string name;
    uint32_t resIndex, width, height, hTotal, vTotal, hStart, vStart, vFreq, hSync, vSync, polarity;
    uint32_t pixelClock, gs4911;
    bool operator==(const Row &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Row &row);

// The table, by ids; empty until it is read, which is a fatal failure where the file is not whole.
extern std::vector<Row> exchanged;
void readExchanged();

// Every case has the table at hand.
class WithExchanged : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(readExchanged()) << FORMATS_FILE;
    }
};

// A row from the texts of its fields, in the order of the struct.
Row rowOfCells(const std::vector<std::string> &cells);

// The rows of the tables with this heading in this chapter of the document.
std::vector<std::vector<std::string>> tableOf(const std::string &chapter,
                                              const std::string &heading);

// Wherever in the sentence the document breaks its lines.
bool documentSays(const std::string &sentence);

// The whole of `text` as a number; any other text fails the test.
uint32_t number(const std::string &text);

// The numbers in "1, 2", "9 to 18" or "5", in that order.
std::vector<uint32_t> numbersIn(const std::string &text);
std::set<uint32_t> setOf(const std::string &text);

std::vector<std::string> split(const std::string &text, const std::string &separator);

std::string quoted(const std::string &text); // in backquotes
