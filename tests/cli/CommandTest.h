#pragma once

#include <OpenImageIO/imageio.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/property_tree/json_parser.hpp>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host/files/MultiViewFile.h"

namespace ViewTint::Cli {

namespace fs = std::filesystem;

/// How a command ended and what it said.
struct Outcome {
    int exitCode = -1;  ///< -1 when a signal ended it
    std::string output;
    std::string errors;
};

/// Gives each test a folder of its own and runs the command there.
class CommandTest : public testing::Test {
protected:
    void SetUp() override {
        const auto* test = testing::UnitTest::GetInstance()->current_test_info();
        folder_ =
            fs::path(testing::TempDir()) / (std::string("viewtint_") + test->test_suite_name() + "_" + test->name());
        fs::remove_all(folder_);
        fs::create_directories(folder_);
    }
    void TearDown() override { fs::remove_all(folder_); }

    enum class Start { calmly, interrupted };

    /// Runs the command with these words. Start::interrupted: SIGINT waits for the command from its first moment.
    Outcome run(const std::vector<std::string>& words, Start start = Start::calmly) const {
        const pid_t child = fork();
        if (child == 0) execute(words, start);
        const int exitCode = exitCodeOf(child);
        return {exitCode, contents(".stdout"), contents(".stderr")};
    }

    /// Runs the command and kills it once `reached` says so, or after some seconds. True if it was still at work.
    template <class Reached>
    bool runAndKillWhen(const std::vector<std::string>& words, Reached&& reached) const {
        const pid_t child = fork();
        if (child == 0) execute(words, Start::calmly);
        for (int waits = 0; waits < 2000 && !reached(); ++waits)
            usleep(2000);
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        return WIFSIGNALED(status);
    }

    /// Runs the command and sends SIGINT once it has said `firstLine` on its error stream. That stream is a pipe with
    /// room for this line alone, so that the command is still at work when the signal comes, however slow the machine.
    Outcome runAndInterruptAfter(const std::string& firstLine, const std::vector<std::string>& words) const {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) return {};
        const int capacity = fcntl(ends[1], F_SETPIPE_SZ, 4096);
        const std::string filler(std::size_t(capacity) - firstLine.size(), '-');
        if (write(ends[1], filler.data(), filler.size()) != ssize_t(filler.size())) return {};
        const pid_t child = fork();
        if (child == 0) execute(words, Start::calmly, ends[1]);
        close(ends[1]);
        siginfo_t ended{};
        for (int waiting = 0; waiting < capacity && ended.si_pid == 0; usleep(1000)) {
            ioctl(ends[0], FIONREAD, &waiting);
            waitid(P_PID, id_t(child), &ended, WEXITED | WNOHANG | WNOWAIT);
        }
        kill(child, SIGINT);
        std::string errors;
        char buffer[4096];
        for (ssize_t count; (count = read(ends[0], buffer, sizeof buffer)) > 0;)
            errors.append(buffer, std::size_t(count));
        close(ends[0]);
        const int exitCode = exitCodeOf(child);
        return {exitCode, contents(".stdout"), errors.substr(filler.size())};
    }

    fs::path file(const std::string& name) const { return folder_ / name; }
    bool exists(const std::string& name) const { return fs::exists(file(name)); }

    /// Every file in the folder but those of the run itself, hidden ones included.
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_))
            if (const std::string name = entry.path().filename(); name != ".stdout" && name != ".stderr")
                names.push_back(name);
        std::sort(names.begin(), names.end());
        return names;
    }

    std::string contents(const std::string& name) const {
        std::ifstream stream(file(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    void writeText(const std::string& name, const std::string& text) const {
        std::ofstream(file(name), std::ios::binary) << text;
    }

    /// An 8-bit PNG of one code everywhere.
    void writePng(const std::string& name, int width, int height, std::vector<std::uint8_t> pixel) const {
        const int channels = int(pixel.size());
        std::vector<std::uint8_t> pixels;
        for (int i = 0; i < width * height; ++i)
            pixels.insert(pixels.end(), pixel.begin(), pixel.end());
        const auto output = OIIO::ImageOutput::create("png");
        ASSERT_TRUE(output->open(file(name).string(), OIIO::ImageSpec(width, height, channels, OIIO::TypeUInt8)));
        ASSERT_TRUE(output->write_image(OIIO::TypeUInt8, pixels.data()) && output->close());
    }

    /// left.png (grey 100), right.png (grey 150) and map.png (disparity 2), 16 x 12 pixels.
    void writePair() const {
        writePng("left.png", 16, 12, {100, 100, 100});
        writePng("right.png", 16, 12, {150, 150, 150});
        writePng("map.png", 16, 12, {2});
    }

    Outcome pack(const std::string& output, const std::vector<std::string>& more = {}) const {
        std::vector<std::string> words = {"pack",    "--left", "left.png", "--right", "right.png", "--disparity-left",
                                          "map.png", "-o",     output};
        words.insert(words.end(), more.begin(), more.end());
        return run(words);
    }

    static boost::property_tree::ptree parseJson(const std::string& text) {
        std::istringstream stream(text);
        boost::property_tree::ptree tree;
        boost::property_tree::read_json(stream, tree);
        return tree;
    }

private:
    static int exitCodeOf(pid_t child) {
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// `errorStream`: a descriptor for the error stream, or -1 for the file.
    [[noreturn]] void execute(const std::vector<std::string>& words, Start start, int errorStream = -1) const {
        const auto redirect = [&](const char* name, int descriptor) {
            dup2(open(file(name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), descriptor);
        };
        redirect(".stdout", STDOUT_FILENO);
        redirect(".stderr", STDERR_FILENO);
        if (errorStream >= 0) dup2(errorStream, STDERR_FILENO);
        if (start == Start::interrupted) {
            // Blocked signals stay pending across exec.
            sigset_t signals;
            sigemptyset(&signals);
            sigaddset(&signals, SIGINT);
            sigprocmask(SIG_BLOCK, &signals, nullptr);
            raise(SIGINT);
        }
        std::vector<char*> arguments = {const_cast<char*>("viewtint")};
        for (const std::string& word : words)
            arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        if (chdir(folder_.c_str()) == 0) execv(VIEWTINT_COMMAND, arguments.data());
        _exit(99);
    }

    fs::path folder_;
};

}  // namespace ViewTint::Cli
