// Effect translation: stored commands into the effect column of each target, collisions and
// their messages, and the volume moved to an effect.
#include "writers/translate.hpp"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "support/module_builder.hpp"

namespace deqaz {
namespace {

using test::MessageCapture;

constexpr const char* TWO_EFFECTS = "2 effects in 1 row!\n";
constexpr const char* CLEAR_XM_VOL = "warn: ClearXMVol\n";
constexpr Target IT = Target::IT, S3M = Target::S3M, XM = Target::XM, MOD = Target::MODMTM;

using Pairs = std::vector<std::pair<uint8_t, uint8_t>>;
using Cell = std::array<int, 5>;  // note, instrument, volume, effect, parameter

struct Case {
    const char* name;
    Target target;
    Pairs pairs;
    Cell expect;
    std::string messages = "";  // as printed outside silent mode
};

std::string repeat(const char* text, int n) {
    std::string s;
    while (n-- > 0) s += text;
    return s;
}

// Translates one single-row group of the pairs, loud and silent: the cell, and the messages (in
// silent mode without the ClearXMVol warnings).
void runCases(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        for (int silent : {0, 1}) {
            SCOPED_TRACE(std::string(c.name) + (silent ? " (silent)" : ""));
            MessageCapture capture(silent);
            std::vector<uint8_t> bytes{static_cast<uint8_t>(0x10 | c.pairs.size())};
            for (auto [cmd, p] : c.pairs) bytes.insert(bytes.end(), {cmd, p});
            EventCell cell{9, 9, 9, 9, 9};  // every byte must be rewritten
            translateEvent(cell, TrackGroup{bytes.data()}, TranslateContext{c.target, &capture.diag});
            EXPECT_EQ((Cell{cell.note, cell.instrument, cell.volume, cell.effect, cell.parameter}), c.expect);
            std::string expected = c.messages;
            for (size_t at; silent && (at = expected.find(CLEAR_XM_VOL)) != std::string::npos;)
                expected.erase(at, std::string(CLEAR_XM_VOL).size());
            EXPECT_EQ(capture.text(), expected);
        }
    }
}

TEST(TranslateTest, EffectColumnPerTarget) {
    // Parameter 0x21 fits no volume column, so every command lands in the effect column: the
    // effect number for IT, S3M, XM and MOD/MTM. A command of one side keeps its number everywhere.
    const std::vector<std::pair<uint8_t, Cell>> effects = {
        {3, {10, 10, 0, 0}},    {4, {1, 1, 1, 1}},      {5, {2, 2, 2, 2}},      {6, {7, 7, 3, 3}},
        {7, {8, 8, 4, 4}},      {8, {5, 5, 5, 5}},      {9, {6, 6, 6, 6}},      {10, {18, 18, 7, 7}},
        {11, {24, 24, 8, 8}},   {12, {15, 15, 9, 9}},   {13, {10, 10, 10, 10}}, {14, {2, 2, 11, 11}},
        {16, {3, 3, 13, 13}},   {17, {14, 14, 14, 14}}, {18, {20, 20, 15, 15}}, {19, {29, 29, 29, 29}},
        {22, {22, 22, 16, 16}}, {23, {17, 17, 17, 17}}, {24, {20, 20, 20, 20}}, {25, {21, 21, 21, 21}},
        {26, {25, 25, 25, 25}}, {28, {27, 27, 27, 27}}, {33, {1, 1, 1, 1}},     {34, {4, 4, 4, 4}},
        {35, {5, 5, 5, 5}},     {36, {6, 6, 6, 6}},     {37, {9, 9, 9, 9}},     {38, {17, 17, 17, 17}},
        {39, {21, 21, 21, 21}}, {40, {13, 13, 13, 13}}, {41, {14, 14, 14, 14}}, {42, {16, 16, 16, 16}},
        {43, {19, 19, 19, 19}}, {44, {20, 20, 20, 20}}, {45, {23, 23, 23, 23}}, {46, {25, 25, 25, 25}},
        {47, {26, 26, 35, 35}}, {51, {32, 32, 32, 32}}};
    std::vector<Case> cases;
    const Target targets[] = {IT, S3M, XM, MOD};
    for (auto [command, effect] : effects)
        for (int t = 0; t < 4; ++t) cases.push_back({"effect", targets[t], {{command, 0x21}}, {0, 0, 0, effect[t], 0x21}});
    for (Target t : targets) {
        cases.push_back({"extra fine up", t, {{29, 0x03}}, {0, 0, 0, 33, 0x13}});
        cases.push_back({"extra fine down", t, {{30, 0x03}}, {0, 0, 0, 33, 0x23}});
        cases.push_back({"IT vol slide", t, {{48, 0}}, {0, 0, 66, 0, 0}});
        cases.push_back({"IT vol pitch down", t, {{49, 2}}, {0, 0, 108, 0, 0}});
        cases.push_back({"IT vol pitch up", t, {{50, 9}}, {0, 0, 125, 0, 0}});
    }
    // Values the IT or XM volume column would take stay effects where the format has no such column.
    cases.insert(cases.end(), {
        {"tone porta S3M", S3M, {{6, 32}}, {0, 0, 0, 7, 32}},
        {"tone porta MOD", MOD, {{6, 0x20}}, {0, 0, 0, 3, 0x20}},
        {"vibrato S3M", S3M, {{7, 5}}, {0, 0, 0, 8, 5}},
        {"panning S3M", S3M, {{11, 128}}, {0, 0, 0, 24, 128}},
        {"panning MOD", MOD, {{11, 0x80}}, {0, 0, 0, 8, 0x80}},
        {"set volume S3M", S3M, {{15, 64}}, {0, 0, 65, 0, 0}},
        {"set volume MOD", MOD, {{15, 32}}, {0, 0, 0, 12, 32}},
    });
    runCases(cases);
}

TEST(TranslateTest, EffectCollisions) {
    runCases({
        {"IT rescues E into volume", IT, {{35, 8}, {43, 0x91}}, {0, 0, 108, 19, 0x91}},
        {"IT rescues F into volume", IT, {{36, 36}, {43, 1}}, {0, 0, 125, 19, 1}},
        {"IT rescues E 0", IT, {{35, 0}, {43, 1}}, {0, 0, 106, 19, 1}},
        {"IT E not multiple of 4", IT, {{35, 0x41}, {43, 0x91}}, {0, 0, 0, 5, 0x41}, TWO_EFFECTS},
        {"IT F above 36", IT, {{36, 40}, {43, 1}}, {0, 0, 0, 6, 40}, TWO_EFFECTS},
        {"IT volume taken", IT, {{15, 0}, {35, 8}, {43, 1}}, {0, 0, 1, 5, 8}, TWO_EFFECTS},
        {"S3M has no rescue", S3M, {{35, 8}, {43, 1}}, {0, 0, 0, 5, 8}, TWO_EFFECTS},
        {"XM has no rescue", XM, {{35, 8}, {43, 1}}, {0, 0, 0, 5, 8}, TWO_EFFECTS},
        {"first stays", MOD, {{4, 1}, {5, 2}, {13, 3}}, {0, 0, 0, 1, 1}, repeat(TWO_EFFECTS, 2)},
        {"empty arpeggio is no effect", XM, {{3, 0}, {4, 5}}, {0, 0, 0, 1, 5}},
        {"D after porta 0", IT, {{6, 0}, {34, 0x04}}, {0, 0, 194, 4, 4}},
        {"D merges into L", IT, {{15, 8}, {6, 0x10}, {34, 0x05}}, {0, 0, 9, 12, 5}},
        {"D merges into K", IT, {{15, 8}, {7, 0x33}, {34, 0x06}}, {0, 0, 9, 11, 6}},
        {"D merges in any target", XM, {{10, 1}, {34, 2}}, {0, 0, 0, 12, 2}},
        {"D collides otherwise", IT, {{4, 1}, {34, 2}}, {0, 0, 0, 1, 1}, TWO_EFFECTS},
    });
}

TEST(TranslateTest, MoveVolumeToEffectDirect) {
    MessageCapture capture;
    const TranslateContext ctx{XM, &capture.diag};
    // Nothing to move; below set volume 0 the parameter wraps; tone portamento.
    for (auto [volume, effect, parameter] : {std::array<int, 3>{0, 0, 0}, {0x05, 12, 0xF5}, {0xFA, 3, 0xA0}}) {
        EventCell cell{0, 0, static_cast<uint8_t>(volume), 0, 0};
        moveVolumeToEffect(cell, ctx);
        EXPECT_EQ((Cell{cell.volume, cell.effect, cell.parameter}), (Cell{0, effect, parameter})) << volume;
    }
    EXPECT_EQ(capture.text(), "");
}

}  // namespace
}  // namespace deqaz
