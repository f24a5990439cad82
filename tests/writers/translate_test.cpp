// Effect translation: stored commands into the note, instrument, volume and effect columns of each
// target, the volume-column rules, collisions and their messages.
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

TEST(TranslateTest, NoteAndInstrument) {
    runCases({
        {"note 0", XM, {{1, 0}}, {1, 0, 0, 0, 0}},
        {"note 252", IT, {{1, 252}}, {253, 0, 0, 0, 0}},
        {"note 253 becomes a cut", IT, {{1, 253}}, {254, 0, 0, 0, 0}},
        {"note cut", S3M, {{1, 254}}, {254, 0, 0, 0, 0}},
        {"note off", MOD, {{1, 255}}, {255, 0, 0, 0, 0}},
        {"instrument 0", IT, {{2, 0}}, {0, 1, 0, 0, 0}},
        {"instrument 255 is none", XM, {{1, 47}, {2, 255}}, {48, 0, 0, 0, 0}},
    });
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

TEST(TranslateTest, ItVolumeColumn) {
    runCases({
        {"porta 32 -> vol", IT, {{6, 32}}, {0, 0, 199, 0, 0}},
        {"porta 0 -> vol", IT, {{6, 0}}, {0, 0, 194, 0, 0}},
        {"porta 255 -> vol", IT, {{6, 255}}, {0, 0, 203, 0, 0}},
        {"porta 12 not in table", IT, {{6, 12}}, {0, 0, 0, 7, 12}},
        {"porta with volume taken", IT, {{15, 0x20}, {6, 32}}, {0, 0, 0x21, 7, 32}},
        {"vibrato depth 9", IT, {{7, 9}}, {0, 0, 213, 0, 0}},
        {"vibrato 10", IT, {{7, 10}}, {0, 0, 0, 8, 10}},
        {"pan 0", IT, {{11, 0}}, {0, 0, 129, 0, 0}},
        {"pan 128", IT, {{11, 128}}, {0, 0, 161, 0, 0}},
        {"pan 255", IT, {{11, 255}}, {0, 0, 193, 0, 0}},
        {"pan 130", IT, {{11, 130}}, {0, 0, 0, 24, 130}},
        {"pan with volume taken", IT, {{15, 0}, {11, 128}}, {0, 0, 1, 24, 128}},
        {"set volume twice", IT, {{15, 10}, {15, 40}}, {0, 0, 41, 0, 0}},
        {"set volume replaces porta", IT, {{6, 1}, {15, 64}}, {0, 0, 65, 0, 0}},
    });
}

TEST(TranslateTest, XmVolumeColumn) {
    runCases({
        {"porta 0x20", XM, {{6, 0x20}}, {0, 0, 0xF2, 0, 0}},
        {"porta 0x21", XM, {{6, 0x21}}, {0, 0, 0, 3, 0x21}},
        {"pan 0x80", XM, {{11, 0x80}}, {0, 0, 0xC8, 0, 0}},
        {"pan 0x84", XM, {{11, 0x84}}, {0, 0, 0, 8, 0x84}},
        {"set volume", XM, {{15, 0x40}}, {0, 0, 0x50, 0, 0}},
        {"second set volume", XM, {{15, 0x40}, {15, 0x20}}, {0, 0, 0x50, 12, 0x20}},
        {"pan with volume taken", XM, {{15, 0}, {11, 0x80}}, {0, 0, 0x10, 8, 0x80}},
        {"vol slide down", XM, {{20, 0x05}}, {0, 0, 0x65, 0, 0}},
        {"vol slide up", XM, {{20, 0x50}}, {0, 0, 0x75, 0, 0}},
        {"fine vol down", XM, {{21, 0x03}}, {0, 0, 0x83, 0, 0}},
        {"fine vol up", XM, {{21, 0x30}}, {0, 0, 0x93, 0, 0}},
        {"pan slide left", XM, {{27, 0x02}}, {0, 0, 0xD2, 0, 0}},
        {"pan slide right", XM, {{27, 0x20}}, {0, 0, 0xE2, 0, 0}},
        {"vibrato speed", XM, {{31, 5}}, {0, 0, 0xA5, 0, 0}},
        {"vibrato depth", XM, {{32, 7}}, {0, 0, 0xB7, 0, 0}},
        // A volume-column command moves what is there into the effect column.
        {"porta moves", XM, {{6, 0x20}, {20, 0x03}}, {0, 0, 0x63, 3, 0x20}},
        {"set volume moves", XM, {{15, 0x40}, {31, 5}}, {0, 0, 0xA5, 12, 0x40}},
        {"pan moves", XM, {{11, 0x80}, {27, 1}}, {0, 0, 0xD1, 8, 0x80}},
        {"slide is lost", XM, {{20, 5}, {21, 0x30}}, {0, 0, 0x93, 0, 0}, CLEAR_XM_VOL},
        {"vibrato is lost twice", XM, {{31, 1}, {32, 2}, {31, 3}}, {0, 0, 0xA3, 0, 0}, repeat(CLEAR_XM_VOL, 2)},
        {"moved volume collides", XM, {{4, 1}, {15, 0x20}, {20, 1}}, {0, 0, 0x61, 1, 1}, TWO_EFFECTS},
        // The move runs in every target, reading the byte as an XM volume value.
        {"move in IT", IT, {{15, 0x20}, {20, 1}}, {0, 0, 0x61, 12, 0x11}},
        {"move in MOD", MOD, {{31, 1}, {32, 2}}, {0, 0, 0xB2, 0, 0}, CLEAR_XM_VOL},
    });
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

TEST(TranslateTest, CommandListBounds) {
    runCases({
        {"command 0 ends the list", IT, {{1, 0x30}, {0, 0}, {2, 5}}, {0x31, 0, 0, 0, 0}},
        {"unknown commands skipped", XM, {{52, 1}, {255, 3}, {4, 7}}, {0, 0, 0, 1, 7}},
    });
    // Only the group's own pairs are read, whatever follows it in the track.
    const uint8_t bytes[] = {0x31, 4, 7, 5, 9, 1, 1};
    MessageCapture capture;
    EventCell cell;
    translateEvent(cell, TrackGroup{bytes}, TranslateContext{XM, &capture.diag});
    EXPECT_EQ((Cell{cell.note, cell.instrument, cell.volume, cell.effect, cell.parameter}), (Cell{0, 0, 0, 1, 7}));
    // No group at all: an empty cell, whatever the cell held before.
    for (Target t : {IT, S3M, XM, MOD}) {
        cell = EventCell{1, 2, 3, 4, 5};
        translateEvent(cell, TrackGroup{}, TranslateContext{t, &capture.diag});
        EXPECT_EQ(cell.note | cell.instrument | cell.volume | cell.effect | cell.parameter, 0);
    }
    EXPECT_EQ(capture.text(), "");
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
