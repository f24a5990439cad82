// Output naming, and the overwrite question on a pipe and on a real pseudo-terminal.
#include <fcntl.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "driver/output_file.hpp"
#include "support/temp_dir.hpp"

namespace deqaz {
namespace {

using namespace deqaz::test;

TEST(OutputName, FormedFromInputOrTakenFromTheCommandLine) {
    // Only the extension after the last "/" or "\\" goes.
    std::string name;
    const char* cases[][3] = {
        {"song.qaz", "it", "song.it"},             {"music/a.b.qaz", "xm", "music/a.b.xm"},
        {"dir.v2/song", "mod", "dir.v2/song.mod"}, {"dir.v2\\song", "mod", "dir.v2\\song.mod"},
        {"STDIN", "s3m", "STDIN.s3m"},             {"x.mtm.qaz", "mtm", "x.mtm.mtm"},
        {"a.b\\c.d", "it", "a.b\\c.it"},           {"trailing.", "it", "trailing.it"},
        {".hidden", "xm", ".xm"},                  {"./song", "it", "./song.it"},
    };
    for (const auto& c : cases) {
        ASSERT_TRUE(formOutputName(c[0], nullptr, c[1], name)) << c[0];
        EXPECT_EQ(name, c[2]);
    }
    ASSERT_TRUE(formOutputName("song.qaz", "out.file.qaz", "it", name));
    EXPECT_EQ(name, "out.file.qaz");

    // 255 characters fit, 256 do not; a refused name leaves nothing behind.
    ASSERT_TRUE(formOutputName((std::string(251, 'a') + ".qaz").c_str(), nullptr, "it", name));
    EXPECT_EQ(name.size(), 254u);
    ASSERT_TRUE(formOutputName(std::string(252, 'a').c_str(), nullptr, "xm", name));
    EXPECT_EQ(name.size(), 255u);
    EXPECT_FALSE(formOutputName(std::string(252, 'a').c_str(), nullptr, "mod", name));
    EXPECT_EQ(name, "");
    ASSERT_TRUE(formOutputName("in", std::string(255, 'o').c_str(), "it", name));
    EXPECT_FALSE(formOutputName("in", std::string(256, 'o').c_str(), "it", name));
    EXPECT_EQ(name, "");
}

class OutputFileTest : public ::testing::Test {
protected:
    void SetUp() override { dir.put("song.it", "old"); }

    // confirmOverwrite with keys from a stream that is not a terminal; returns answer + messages.
    std::pair<bool, std::string> askWithKeys(const std::string& name, const std::string& keys) {
        std::FILE* in = std::tmpfile();
        std::FILE* err = std::tmpfile();
        std::fputs(keys.c_str(), in);
        std::rewind(in);
        const bool yes = confirmOverwrite(name.c_str(), in, err);
        const std::string text = readStream(err);
        std::fclose(in);
        std::fclose(err);
        return {yes, text};
    }

    TempDir dir;
    const std::string existing_ = (dir / "song.it").string();
};

TEST_F(OutputFileTest, PromptWithoutATerminal) {
    const std::string prompt = existing_ + " exists, overwrite? (Y/N) ";
    EXPECT_EQ(askWithKeys(existing_, "ab\r\nN"), std::make_pair(false, prompt + "No\n"));
    EXPECT_EQ(askWithKeys(existing_, "n"), std::make_pair(false, prompt + "No\n"));
    EXPECT_EQ(askWithKeys(existing_, "x y"), std::make_pair(true, prompt + "Yes\n"));
    EXPECT_EQ(askWithKeys(existing_, "Y"), std::make_pair(true, prompt + "Yes\n"));
    // Input that ends, with or without other keys first, never means yes.
    EXPECT_EQ(askWithKeys(existing_, ""), std::make_pair(false, prompt + "No\n"));
    EXPECT_EQ(askWithKeys(existing_, "qqq"), std::make_pair(false, prompt + "No\n"));
    // No file of that name: yes at once, nothing asked.
    EXPECT_EQ(askWithKeys((dir / "new.it").string(), "n"), std::make_pair(true, std::string()));
}

// The question as a user meets it: stdin and stderr on a pseudo-terminal in its normal
// (cooked, echoing) mode.
class PromptOnTerminal : public OutputFileTest {
protected:
    void SetUp() override {
        OutputFileTest::SetUp();
        ASSERT_EQ(openpty(&master_, &slave_, nullptr, nullptr, nullptr), 0);
        ASSERT_EQ(tcgetattr(slave_, &cooked_), 0);
        ASSERT_TRUE(cooked_.c_lflag & ICANON);
        ASSERT_TRUE(cooked_.c_lflag & ECHO);
        in_ = fdopen(dup(slave_), "r");
        err_ = fdopen(dup(slave_), "w");
        ASSERT_TRUE(in_ && err_);
    }
    void TearDown() override {
        if (in_) std::fclose(in_);
        if (err_) std::fclose(err_);
        if (slave_ >= 0) close(slave_);
        if (master_ >= 0) close(master_);
        OutputFileTest::TearDown();
    }

    // Starts the question, waits until the terminal is raw (the question is then on screen),
    // types the keys, and returns the answer.
    std::future<bool> ask() {
        auto answer = std::async(std::launch::async, [this] { return confirmOverwrite(existing_.c_str(), in_, err_); });
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        termios now{};
        while (tcgetattr(slave_, &now) == 0 && (now.c_lflag & (ICANON | ECHO))) {
            if (std::chrono::steady_clock::now() > deadline) {
                ADD_FAILURE() << "terminal never switched to raw mode";
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return answer;
    }
    void type(const std::string& keys) { ASSERT_EQ(write(master_, keys.data(), keys.size()), ssize_t(keys.size())); }
    // Everything the terminal showed.
    std::string screen() {
        std::string s;
        fcntl(master_, F_SETFL, O_NONBLOCK);
        char buf[256];
        for (ssize_t n; (n = read(master_, buf, sizeof buf)) > 0;) s.append(buf, static_cast<size_t>(n));
        return s;
    }
    void expectRestored() {
        termios after{};
        ASSERT_EQ(tcgetattr(slave_, &after), 0);
        EXPECT_EQ(after.c_lflag, cooked_.c_lflag);
        EXPECT_EQ(after.c_iflag, cooked_.c_iflag);
        EXPECT_EQ(after.c_oflag, cooked_.c_oflag);
        EXPECT_EQ(after.c_cflag, cooked_.c_cflag);
        EXPECT_EQ(0, std::memcmp(after.c_cc, cooked_.c_cc, sizeof after.c_cc));
    }

    int master_ = -1, slave_ = -1;
    termios cooked_{};
    std::FILE* in_ = nullptr;
    std::FILE* err_ = nullptr;
};

// Keys other than y and n are ignored, unechoed; the answer stands after the question (a line
// feed shown as CR LF once the terminal is back to normal), which is left as it was found.
TEST_F(PromptOnTerminal, OtherKeysIgnoredThenAnAnswer) {
    for (const char* key : {"N", "y"}) {
        auto answer = ask();
        type("x7 \r");
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(answer.wait_for(std::chrono::seconds(0)), std::future_status::timeout) << "answered without y or n";
        type(key);
        ASSERT_EQ(answer.wait_for(std::chrono::seconds(10)), std::future_status::ready);
        EXPECT_EQ(answer.get(), *key == 'y');
        expectRestored();
        EXPECT_EQ(screen(), existing_ + " exists, overwrite? (Y/N) " + (*key == 'y' ? "Yes" : "No") + "\r\n");
    }
    EXPECT_EQ(readFile(existing_), "old");
}

}  // namespace
}  // namespace deqaz
