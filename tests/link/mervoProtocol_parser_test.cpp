// The parser of answers: its quirks in rows, and every edited frame and a long disturbed stream
// against a model that knows no states, only the text since the last "<".

#include "link/mervoProtocol.h"

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "tests/link/far_end.h"
#include "tests/support/bytes.h"

namespace {

using std::string_literals::operator""s;

using Texts = std::vector<std::string>;

TEST(MervoProtocol, AnswersAreParsedAsTheRowsSay)
{
    // clang-format off
    const struct {
        const char *name;
        std::string text;
        size_t answers;
        const char *last; // in hexadecimal
    } rows[] = {
        {"any checksum will do",              "<F01010200000000xx>",       1, "0101020000000000"},
        {"what is no digit counts as 0",      "<Fg1 2-34z5G6.\xFF\x80>8>", 1, "0102034050600008"},
        {"two openings restart at the second", "<<F0105020000000008>",     1, "0105020000000008"},
        {"so does one among the digits",      "<F9999<F0105020000000008>", 1, "0105020000000008"},
        {"without F, ignored up to the next", "<XF0105020000000008>",      0, "0000000000000000"},
        {"15 digits take the end as the 16th", "<F010502000000001>",       0, "0000000000000000"},
        {"and are dropped unless one more follows", "<F010502000000001>\r>", 0, "0000000000000000"},
        {"at once",                           "<F010502000000001>>",       1, "0105020000000010"},
        {"17 digits are dropped",             "<F01050200000000080>",      0, "0000000000000000"},
        {"a dropped one leaves the last alone",
         "<F0102030405060708><F1111111111111111!<F22222<F3333333333333333", 1, "0102030405060708"},
    };
    // clang-format on
    for (const auto &row : rows) {
        OpenLink open;
        EXPECT_EQ(open.parse(row.text), row.answers) << row.name;
        EXPECT_EQ(hex(open.link.lastAnswer, 8), row.last) << row.name;
        EXPECT_EQ(open.link.acknowledged, open.link.lastAnswer[1]) << row.name;
        EXPECT_EQ(open.link.answered, row.answers) << row.name;
        EXPECT_EQ(farEnd.answers.size(), row.answers) << row.name;
    }
}

TEST(MervoProtocol, EveryOtherStateFallsBackToTheHunt)
{
    OpenLink open;
    for (const uint8_t state : std::vector<uint8_t>{4, 5, 6, 128, 255}) {
        for (int code = 0; code < 256; ++code) {
            open.link.state = state;
            open.link.count = 200;
            MervoLink expected = open.link;
            expected.state = code == '<' ? 1 : 0;
            expected.count = code == '<' ? 1 : 200;
            ASSERT_EQ(_interpret_cmd_char(&open.link, static_cast<uint8_t>(code)), 0);
            ASSERT_TRUE(isLink(open.link, expected)) << +state << ' ' << code;
        }
    }
}

// The function called ----------------------------------------------------------------------------

TEST(MervoProtocol, OnAnswerFindsTheAnswerStoredAndTheParserHuntingAndMayBeNull)
{
    OpenLink open;
    farEnd.onAnswer = [](MervoLink *link) {
        EXPECT_EQ(link->state, 0);
        EXPECT_EQ(link->count, 0);
        EXPECT_EQ(link->answered, 1);
        EXPECT_EQ(link->acknowledged, 0x12);
        EXPECT_EQ(hex(link->lastAnswer, 8), "1112131415161718");
    };
    open.parse("<F1112131415161718");
    EXPECT_TRUE(farEnd.answers.empty());
    open.parse(">");
    ASSERT_EQ(farEnd.answers.size(), 1u);
    EXPECT_EQ(farEnd.answers[0].link, &open.link);
    EXPECT_EQ(farEnd.answers[0].from, open.link.lastAnswer);
    EXPECT_EQ(farEnd.answers[0].bytes, "\x11\x12\x13\x14\x15\x16\x17\x18");
    open.link.onAnswer = nullptr;
    EXPECT_EQ(open.parse(answerFrame(1)), 1u);
}

TEST(MervoProtocol, OnAnswerMayParseTheNextAnswer)
{
    OpenLink open;
    open.receive(answerFrame(1) + answerFrame(2) + answerFrame(3));
    farEnd.onAnswer = [](MervoLink *link) {
        if (farEnd.answers.size() == 1) {
            Task_MervoProtocol(link);
            EXPECT_EQ(link->acknowledged, 2);
        }
    };
    Task_MervoProtocol(&open.link);
    EXPECT_EQ(open.link.acknowledged, 2);
    EXPECT_EQ(open.unread(), answerFrame(3));
}

// The task ---------------------------------------------------------------------------------------

TEST(MervoProtocol, TaskTakesOneAnswerACallAndDoesNothingElse)
{
    OpenLink open;
    const std::string first = answerFrame(1);
    const std::string second = answerFrame(2);
    open.receive("x" + first + second + "y<F01");
    for (const int number : {1, 2, 2, 2}) {
        Task_MervoProtocol(&open.link);
        EXPECT_EQ(open.link.acknowledged, number);
    }
    EXPECT_EQ(farEnd.events, (Texts{"read x" + first, "answer", "read " + second, "answer",
                                    "read y<F01", "empty", "empty"}));
    EXPECT_EQ(open.link.count, 2) << "half an answer waits for the rest";
    const MervoLink expected = open.link;
    open.link.receivePipe = nullptr;
    Task_MervoProtocol(&open.link);
    open.link.receivePipe = &open.pipe;
    EXPECT_TRUE(isLink(open.link, expected)) << "without a pipe";
}

TEST(MervoProtocol, TaskCarriesEveryByteFromThePipeToTheParser)
{
    OpenLink open;
    for (int code = 0; code < 256; ++code) {
        const char character = static_cast<char>(code);
        open.receive("<F"s + character);
        Task_MervoProtocol(&open.link);
        if (character != '<') {
            EXPECT_EQ(open.link.hexPair[0], character) << code;
        }
    }
}

// Against a model --------------------------------------------------------------------------------

uint8_t valueOfPair(char high, char low)
{
    const std::string_view digits = "00112233445566778899aAbBcCdDeEfF";
    const auto valueOf = [&](char digit) {
        const size_t place = digits.find(digit);
        return place == digits.npos ? 0 : place / 2;
    };
    return static_cast<uint8_t>(valueOf(high) * 16 + valueOf(low));
}

// A link and what it must hold, said by the text since the last "<" instead of by a state.
struct ModelledLink {
    // Parses the character on both sides; returns false where they differ.
    bool agreesAfter(char character)
    {
        const bool isAnswer = take(character);
        farEnd = {};
        const int32_t result = _interpret_cmd_char(&open.link, static_cast<uint8_t>(character));
        const size_t expected = isAnswer ? 1 : 0;
        answers += expected;
        return static_cast<size_t>(result) == expected && farEnd.answers.size() == expected &&
               isLink(open.link, model);
    }

    // The model's side; returns whether the character completes an answer.
    bool take(char character)
    {
        if (character == '<') {
            text.clear();
        } else if (text.empty()) {
            return false;
        }
        text += character;
        const size_t length = text.size();
        if (length == 2 && character != 'F') {
            text.clear();
            model.state = 0; // and the count stays
            return false;
        }
        model.state = length == 1 ? 1 : length < 18 ? 2 : length == 18 ? 3 : 0;
        model.count = static_cast<uint8_t>(length == 1 ? 1 : length < 18 ? length - 2 : 0);
        if (length > 2 && length < 19) {
            model.hexPair[length % 2 == 1 ? 0 : 1] = character;
        }
        if (length > 2 && length < 19 && length % 2 == 0) {
            model.answerInProgress[length / 2 - 2] = valueOfPair(text[length - 2], character);
        }
        if (length < 19) {
            return false;
        }
        const std::string answer = text;
        text.clear();
        if (character != '>') {
            return false;
        }
        for (size_t i = 0; i < 8; ++i) {
            model.lastAnswer[i] = valueOfPair(answer[2 + 2 * i], answer[3 + 2 * i]);
        }
        model.acknowledged = valueOfPair(answer[4], answer[5]);
        model.answered = 1;
        return true;
    }

    OpenLink open;
    MervoLink model = open.link;
    std::string text; // since the last "<"; empty where the rest up to the next is ignored
    size_t answers = 0;
};

TEST(MervoProtocol, EveryEditOfAnAnswerHasTheEffectThatTheModelSays)
{
    const std::string frame = "<F0123456789abcdef>";
    Texts edits;
    for (size_t place = 0; place < frame.size(); ++place) {
        edits.push_back(std::string(frame).erase(place, 1));
        for (int code = 0; code < 256; ++code) {
            edits.push_back(std::string(frame).insert(place, 1, static_cast<char>(code)));
            edits.push_back(std::string(frame).replace(place, 1, 1, static_cast<char>(code)));
        }
    }
    for (const std::string &edit : edits) {
        ModelledLink both;
        for (const char next : edit + frame) { // the parser is ready for the next one
            ASSERT_TRUE(both.agreesAfter(next)) << edit;
        }
        ASSERT_GE(both.answers, 1u) << edit;
    }
}

// Of 8 characters, `good` are those that a well-formed stream would have next; among the others,
// the three that matter and digits are frequent.
TEST(MervoProtocol, ParserBehavesLikeItsModelOnAStreamOfAnyQuality)
{
    const struct {
        uint32_t good;
        size_t leastAnswers; // so that a run without any does not pass for a proof
    } rows[] = {{2, 0}, {6, 30}, {7, 300}};
    const std::string_view digits = "0123456789abcdefABCDEF";
    const std::string anything = countingBytes(256);
    for (const auto &row : rows) {
        ModelledLink both;
        both.open.link.sequence = both.model.sequence = 250; // stays so
        std::mt19937 random(row.good);
        const auto oneOf = [&random](std::string_view characters) {
            return characters[random() % characters.size()];
        };
        for (uint32_t i = 0; i < 30000; ++i) {
            const size_t length = both.text.size();
            const std::string_view next = length == 0    ? "<"
                                          : length == 1  ? "F"
                                          : length == 18 ? ">"
                                                         : digits;
            const std::string_view others[] = {"<F>", anything, digits, digits};
            const char character = oneOf(random() % 8 < row.good ? next : others[random() % 4]);
            ASSERT_TRUE(both.agreesAfter(character)) << row.good << ", character " << i;
        }
        EXPECT_GE(both.answers, row.leastAnswers) << row.good;
    }
}

} // namespace
