#include "tools/sav_table.h"

#include <algorithm>

#include <fmt/format.h>

#include "tools/sav_json.h"
#include "tools/text.h"

namespace {

constexpr size_t kLineWidth = 118;
constexpr size_t kValueWidth = 64;
constexpr size_t kIndent = 2;

// A field of a record that is not an array of records, with the fields of records in it.
struct Cell {
    std::string name;
    const SavField *field;
    size_t at;
};

void collectCells(const SavRecord &record, size_t at, const std::string &prefix,
                  std::vector<Cell> &cells)
{
    for (const SavField &field : record.fields) {
        const std::string name = fmt::format("{}{}", prefix, field.name);
        for (size_t i = 0; field.record != nullptr && i < field.count; ++i) {
            collectCells(*field.record, at + field.offset + i * field.bytes,
                         field.isArray ? fmt::format("{}[{}].", name, i) : name + '.', cells);
        }
        if (field.record == nullptr) {
            cells.push_back({name, &field, at + field.offset});
        }
    }
}

// The value, or the values of an array with blanks between them.
std::string valueOf(const SavField &field, std::string_view bytes, size_t at)
{
    std::string text;
    for (size_t i = 0; i < field.count; ++i) {
        text += i == 0 ? "" : " ";
        const size_t start = text.size();
        appendText(field, bytes, at + i * field.bytes, text);
        text += text.size() == start ? "-" : "";
    }
    return text;
}

// Pieces of a long value, cut at a blank where there is one.
std::vector<std::string> wrapped(std::string_view value)
{
    std::vector<std::string> pieces;
    while (value.size() > kValueWidth) {
        const size_t blank = value.rfind(' ', kValueWidth);
        const bool isCut = blank == std::string_view::npos;
        pieces.emplace_back(value.substr(0, isCut ? kValueWidth : blank));
        value.remove_prefix(isCut ? kValueWidth : blank + 1);
    }
    pieces.emplace_back(value);
    return pieces;
}

// A part of the text, under one heading.
class Chapter {
public:
    Chapter(std::string title, std::string_view bytes) : title_(std::move(title)), bytes_(bytes) {}

    const std::string &title() const
    {
        return title_;
    }

    void addField(const SavField &field, size_t at, const std::string &prefix)
    {
        rows_.push_back({std::to_string(at), fmt::format("{}{}", prefix, field.name),
                         valueOf(field, bytes_, at), std::string(field.unit)});
    }

    // An array of records, which have no arrays of records.
    void addTable(const SavField &field, size_t at, const std::string &prefix);

    std::string take()
    {
        flushRows();
        return fmt::format("\n{}\n{}", title_, text_);
    }

private:
    struct Row {
        std::string at;
        std::string name;
        std::string value;
        std::string unit;
    };

    void flushRows();

    std::string title_;
    std::string_view bytes_;
    std::vector<Row> rows_; // since the last table
    std::string text_;
};

void Chapter::flushRows()
{
    if (rows_.empty()) {
        return;
    }
    text_ += text_.empty() ? "" : "\n";
    rows_.insert(rows_.begin(), {"offset", "field", "value", "unit or range"});
    size_t name = 0;
    size_t value = 0;
    for (const Row &row : rows_) {
        name = std::max(name, row.name.size());
        value = std::max(value, std::min(row.value.size(), kValueWidth));
    }
    for (const Row &row : rows_) {
        const std::vector<std::string> pieces = wrapped(row.value);
        std::string line = fmt::format("{:>{}}  {:{}}  {:{}}  {}", row.at, kIndent + 6, row.name,
                                       name, pieces[0], value, row.unit);
        line.erase(line.find_last_not_of(' ') + 1);
        text_ += line + '\n';
        for (size_t i = 1; i < pieces.size(); ++i) {
            text_ += fmt::format("{:{}}{}\n", "", kIndent + 6 + 2 + name + 2, pieces[i]);
        }
    }
    rows_.clear();
}

// Requires: both columns have the same number of cells.
bool isSameInAll(const std::vector<std::vector<std::string>> &columns, size_t first, size_t end,
                 size_t row, size_t other)
{
    for (size_t i = first; i < end; ++i) {
        if (columns[i][row] != columns[i][other]) {
            return false;
        }
    }
    return true;
}

void Chapter::addTable(const SavField &field, size_t at, const std::string &prefix)
{
    flushRows();
    text_ += fmt::format("{}{:{}}{}{}, at {} and every {} bytes\n", text_.empty() ? "" : "\n", "",
                         kIndent, prefix, field.name, at, field.bytes);
    std::vector<Cell> cells; // of the first entry
    collectCells(*field.record, 0, "", cells);
    constexpr size_t kHeads = 2;                   // name and unit, above the values
    std::vector<std::vector<std::string>> columns; // of cells
    std::vector<size_t> widths;
    for (const Cell &cell : cells) {
        std::vector<std::string> column{cell.name, std::string(cell.field->unit)};
        for (size_t i = 0; i < field.count; ++i) {
            column.push_back(valueOf(*cell.field, bytes_, at + cell.at + i * field.bytes));
        }
        size_t width = 0;
        for (const std::string &text : column) {
            width = std::max(width, text.size());
        }
        widths.push_back(width);
        columns.push_back(std::move(column));
    }
    // As many columns as fit, then the next ones below.
    const size_t label = fmt::format("[{0}] to [{0}]", field.count - 1).size();
    for (size_t first = 0; first < columns.size();) {
        size_t width = kIndent + label;
        size_t end = first;
        while (end < columns.size() && (end == first || width + 2 + widths[end] <= kLineWidth)) {
            width += 2 + widths[end];
            end += 1;
        }
        for (size_t row = 0; row < kHeads + field.count;) {
            size_t next = row + 1;
            while (row >= kHeads && next < kHeads + field.count &&
                   isSameInAll(columns, first, end, row, next)) {
                next += 1;
            }
            std::string line;
            if (row >= kHeads) {
                line = next == row + 1
                           ? fmt::format("[{}]", row - kHeads)
                           : fmt::format("[{}] to [{}]", row - kHeads, next - 1 - kHeads);
            }
            line.resize(label, ' ');
            for (size_t i = first; i < end; ++i) {
                line.append(2 + widths[i] - columns[i][row].size(), ' ');
                line += columns[i][row];
            }
            line.erase(line.find_last_not_of(' ') + 1); // npos + 1 is 0
            if (!line.empty()) {                        // there may be no units
                text_.append(kIndent, ' ');
                text_ += line + '\n';
            }
            row = next;
        }
        first = end;
    }
}

class Table {
public:
    explicit Table(std::string_view bytes) : bytes_(bytes) {}

    // Adds the record with the fields of records in it. Requires: the heading of an earlier record
    // that has tables is not the same.
    void add(const SavRecord &record, size_t at, const std::string &prefix,
             const std::string &heading)
    {
        for (const SavField &field : record.fields) {
            const size_t fieldAt = at + field.offset;
            if (field.record == nullptr) {
                chapterOf(record, heading).addField(field, fieldAt, prefix);
            } else if (field.record->hasTables) {
                // A view: with chapters of its own.
                for (size_t i = 0; i < field.count; ++i) {
                    const std::string name = field.isArray
                                                 ? fmt::format("{}{}[{}]", prefix, field.name, i)
                                                 : fmt::format("{}{}", prefix, field.name);
                    const bool isBlock = field.record->chapter == record.chapter;
                    add(*field.record, fieldAt + i * field.bytes, name + '.',
                        isBlock ? heading : name + ": ");
                }
            } else if (field.isArray) {
                chapterOf(*field.record, heading).addTable(field, fieldAt, prefix);
            } else {
                add(*field.record, fieldAt, fmt::format("{}{}.", prefix, field.name), heading);
            }
        }
    }

    std::string take()
    {
        std::string text;
        for (Chapter &chapter : chapters_) {
            text += chapter.take();
        }
        return text;
    }

private:
    Chapter &chapterOf(const SavRecord &record, const std::string &heading)
    {
        const std::string title = fmt::format("{}{}", heading, record.chapter);
        const auto found =
            std::find_if(chapters_.begin(), chapters_.end(),
                         [&title](const Chapter &each) { return each.title() == title; });
        return found == chapters_.end() ? chapters_.emplace_back(title, bytes_) : *found;
    }

    std::string_view bytes_;
    std::vector<Chapter> chapters_;
};

} // namespace

std::string tableOfSav(const SavFile &file)
{
    const SavRecord &record = savRecordOf(file.kind);
    const size_t length = file.bytes.size();
    std::string text = fmt::format("{}: {}, ", escape(file.path), nameOf(file.kind));
    if (length < record.bytes) {
        text += fmt::format("{} of {} bytes: the last {} are missing\n", length, record.bytes,
                            record.bytes - length);
    } else if (length > record.bytes) {
        text += fmt::format("{} bytes and {} more\n", record.bytes, length - record.bytes);
    } else {
        text += fmt::format("{} bytes\n", length);
    }
    Table table(file.bytes);
    table.add(record, 0, "", "");
    text += table.take();
    const size_t end = endOfSavValues(file);
    if (end < length) {
        text += fmt::format("\nbytes from {} that are no value\n", end);
        for (const std::string &piece : wrapped(hexOf(std::string_view(file.bytes).substr(end)))) {
            text += fmt::format("{:{}}{}\n", "", kIndent, piece);
        }
    }
    return text;
}
