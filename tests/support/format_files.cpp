#include "tests/support/format_files.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <iterator>

std::ostream &operator<<(std::ostream &out, const Row &row)
{
    out << row.id << ' ' << row.name;
    for (const uint32_t value :
         {row.resIndex, row.width, row.height, row.hTotal, row.vTotal, row.hStart, row.vStart,
          row.vFreq, row.hSync, row.vSync, row.polarity, row.pixelClock, row.gs4911}) {
        out << ' ' << value;
    }
    return out;
}

uint32_t number(const std::string &text)
{
    char *end = nullptr;
    const unsigned long value = std::strtoul(text.c_str(), &end, 0);
    EXPECT_TRUE(end != text.c_str() && *end == '\0') << '"' << text << '"';
    return static_cast<uint32_t>(value);
}

std::vector<std::string> split(const std::string &text, const std::string &separator)
{
    std::vector<std::string> parts;
    size_t from = 0;
    for (size_t to; (to = text.find(separator, from)) != std::string::npos;) {
        parts.push_back(text.substr(from, to - from));
        from = to + separator.size();
    }
    parts.push_back(text.substr(from));
    return parts;
}

Row rowOfCells(const std::vector<std::string> &cells)
{
    Row row{};
    row.id = number(cells[0]);
    row.name = cells[1];
    uint32_t *const fields[] = {&row.resIndex, &row.width,  &row.height,   &row.hTotal,
                                &row.vTotal,   &row.hStart, &row.vStart,   &row.vFreq,
                                &row.hSync,    &row.vSync,  &row.polarity, &row.pixelClock,
                                &row.gs4911};
    for (size_t i = 0; i < std::size(fields); ++i) {
        *fields[i] = number(cells[2 + i]);
    }
    return row;
}

std::vector<Row> exchanged;

void readExchanged()
{
    exchanged.clear();
    std::ifstream file(FORMATS_FILE);
    std::string line;
    std::getline(file, line);
    ASSERT_EQ(line, "id,name,res_index,width,height,h_total,v_total,h_start,v_start,v_freq,h_sync,"
                    "v_sync,polarity,pixel_clock,gs4911");
    while (std::getline(file, line)) {
        const std::vector<std::string> cells = split(line, ",");
        ASSERT_EQ(cells.size(), 15u) << line;
        ASSERT_EQ(number(cells[0]), exchanged.size());
        exchanged.push_back(rowOfCells(cells));
    }
    ASSERT_EQ(exchanged.size(), 124u);
}

std::vector<std::vector<std::string>> tableOf(const std::string &chapter,
                                              const std::string &heading)
{
    std::ifstream document(FORMATS_DOCUMENT);
    std::vector<std::vector<std::string>> rows;
    bool isInChapter = false;
    bool isInTable = false;
    for (std::string line; std::getline(document, line);) {
        if (line.rfind("## ", 0) == 0) {
            isInChapter = line == "## " + chapter;
        }
        if (line.rfind("| ", 0) != 0 && line.rfind("|-", 0) != 0) {
            isInTable = false;
        } else if (isInChapter && line == "| " + heading + " |") {
            isInTable = true;
        } else if (isInTable && line.rfind("| ", 0) == 0) {
            rows.push_back(split(line.substr(2, line.size() - 4), " | "));
        }
    }
    return rows;
}

bool documentSays(const std::string &sentence)
{
    std::ifstream document(FORMATS_DOCUMENT);
    std::string text{std::istreambuf_iterator<char>(document), {}};
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text.find(sentence) != std::string::npos;
}

std::vector<uint32_t> numbersIn(const std::string &text)
{
    std::vector<uint32_t> numbers;
    for (const std::string &part : split(text, ", ")) {
        const std::vector<std::string> ends = split(part, " to ");
        for (uint32_t n = number(ends.front()); n <= number(ends.back()); ++n) {
            numbers.push_back(n);
        }
    }
    return numbers;
}

std::set<uint32_t> setOf(const std::string &text)
{
    const std::vector<uint32_t> numbers = numbersIn(text);
    return {numbers.begin(), numbers.end()};
}

std::string quoted(const std::string &text)
{
    return '`' + text + '`';
}
