// The texts of commands F2 and F3: lists of key=value items, prefixes, suffixes, hexadecimal
// characters. The first byte of an input chooses the operation.

#include <cctype>
#include <cstring>
#include <utility>
#include <vector>

#include "command/frame.h"
#include "command/setting.h"
#include "command/text.h"
#include "tests/fuzz/world.h"

namespace {

using Items = std::vector<std::pair<std::string, int32_t>>;
Items *found;

void note(uint8_t, SplitState *item, uint8_t)
{
    found->emplace_back(item->key, item->value);
}

// A text of its own, without spare room behind it.
struct Text {
    explicit Text(std::string_view text) : bytes(text.begin(), text.end())
    {
        bytes.push_back('\0');
        bytes.shrink_to_fit();
    }
    char *data()
    {
        return bytes.data();
    }
    std::vector<char> bytes;
};

bool isBlank(char character)
{
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

// The number that `text` begins with, cut to 32 bits; false when there is none.
bool numberAt(std::string_view text, int32_t &number)
{
    size_t at = 0;
    while (at < text.size() && isBlank(text[at])) {
        ++at;
    }
    const bool isNegative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) {
        ++at;
    }
    const size_t first = at;
    int64_t value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        value = value > INT32_MAX ? value : value * 10 + (text[at] - '0');
    }
    value = isNegative ? -value : value;
    number = value > INT32_MAX   ? INT32_MAX
             : value < INT32_MIN ? INT32_MIN
                                 : static_cast<int32_t>(value);
    return at > first;
}

Items itemsOf(std::string_view text)
{
    Items items;
    text = text.substr(0, text.find('\0'));
    for (;;) {
        while (!text.empty() && isBlank(text.front())) {
            text.remove_prefix(1);
        }
        const size_t equals = text.find('=');
        int32_t number = 0;
        if (equals == std::string_view::npos || !numberAt(text.substr(equals + 1), number)) {
            return items;
        }
        items.emplace_back(text.substr(0, equals), number);
        const size_t comma = text.find(',', equals);
        if (comma == std::string_view::npos) {
            return items;
        }
        text.remove_prefix(comma + 1);
    }
}

void compareItems(std::string_view bytes)
{
    Items items;
    found = &items;
    Text text(bytes);
    processInputStr(1, text.data(), note);
    MUST_HOLD(items == itemsOf(bytes));
}

void compareEnds(std::string_view bytes)
{
    const size_t middle = bytes.find('\0');
    const std::string_view left = bytes.substr(0, middle);
    std::string_view right = middle == std::string_view::npos ? "" : bytes.substr(middle + 1);
    right = right.substr(0, right.find('\0'));
    Text text(left);
    Text part(right);
    MUST_HOLD((start_with(text.data(), part.data()) == 0) ==
              (!right.empty() && left.starts_with(right)));
    MUST_HOLD((end_with(text.data(), part.data()) == 0) == left.ends_with(right));
    const char *const after = split_next(text.data(), part.data());
    if (right.size() == 1) {
        const char *const at = std::strchr(text.data(), right[0]);
        MUST_HOLD(after == (at == nullptr ? nullptr : at + 1));
    } else if (after != nullptr) {
        MUST_HOLD(std::string_view(text.data(), static_cast<size_t>(after - text.data()))
                      .ends_with(right));
    }
    const std::string_view stripped = lstrip(text.data());
    MUST_HOLD(left.ends_with(stripped) && (stripped.empty() || !isBlank(stripped[0])));
}

void compareCharacters(std::string_view bytes)
{
    for (size_t i = 0; i + 1 < bytes.size(); ++i) {
        unsigned expected = 0;
        for (const char digit : bytes.substr(i, 2)) {
            const bool isDigit = std::isxdigit(static_cast<unsigned char>(digit)) != 0;
            const std::string one(1, isDigit ? digit : '0');
            expected = expected * 16 + static_cast<unsigned>(std::stoi(one, nullptr, 16));
        }
        MUST_HOLD(HexCharToByte(bytes.data() + i) == expected);
        char pair[2];
        MUST_HOLD(ByteToHexChar(static_cast<uint8_t>(expected), pair) == pair);
        MUST_HOLD(HexCharToByte(pair) == expected);
    }
    Text text(bytes);
    auto *const block = reinterpret_cast<uint8_t *>(text.data());
    const auto length = static_cast<uint32_t>(text.bytes.size());
    SetBufferCheckSum(block, length);
    MUST_HOLD(SumOfBytes(block, length - 1) == block[length - 1]);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t count)
{
    World run;
    Input input(bytes, count);
    const uint8_t kind = input.byte();
    switch (kind % 4) {
    case 0:
        compareItems(input.rest());
        break;
    case 1:
        compareEnds(input.rest());
        break;
    case 2:
        compareCharacters(input.rest());
        break;
    default: {
        const uint8_t dat1 = input.byte();
        Text text(input.rest());
        const bool isKnown = dat1 == 0 || dat1 == 9 || dat1 == 0x38 || dat1 == 0x39;
        MUST_HOLD((processStrValue(dat1, kind, text.data()) != nullptr) == isKnown);
        std::vector<char> room(kBufferSize + 1, '\x7F');
        const bool isRead = processValueToString(dat1, kind, room.data()) != nullptr;
        MUST_HOLD(isRead == (isKnown && dat1 != 0x38));
        MUST_BE(room.data(), "[]");
        break;
    }
    }
    return 0;
}
