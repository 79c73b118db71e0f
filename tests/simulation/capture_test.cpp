#include "sim/base/capture.h"

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <map>
#include <stdexcept>

#include "tests/support.h"

namespace fs = std::filesystem;

namespace
{

// The types of the blocks that follow each other up to the end of a capture, in their number; none crosses a page.
std::map<DWORD, int> CountBlocks(const std::string& bytes)
{
    std::map<DWORD, int> count;
    for (std::size_t offset = 0; offset < bytes.size();) {
        DWORD block[2] = {};
        DWORD end = 0;
        bytes.copy(reinterpret_cast<char*>(block), sizeof block, offset);
        if (block[1] < 12 || block[1] % 4 != 0 || block[1] > bytes.size() - offset)
            throw std::runtime_error("not whole");
        bytes.copy(reinterpret_cast<char*>(&end), sizeof end, offset + block[1] - sizeof end);
        EXPECT_EQ(block[1], end);
        EXPECT_EQ(offset / 4096, (offset + block[1] - 1) / 4096);
        count[block[0]]++;
        offset += block[1];
    }
    return count;
}

}  // namespace

TEST(Capture, IsWholeWhileProcessesThatWriteItAreKilled)
{
    const CTestFolder folder;
    const fs::path file = folder.Path() / "run.pcapng";
    sim::CCapture capture(file);
    const std::string bytes(9000, 'x');
    std::vector<pid_t> writers;
    for (int writer = 0; writer < 4; writer++) {
        writers.push_back(fork());
        if (writers.back() != 0) continue;
        for (std::size_t size = 1000 * writer;; size = (size + 997) % bytes.size())
            capture.AddRequest(sim::Wire_Channel, 0, bytes.data(), size);
    }
    // Each of them is killed in the middle of its work, while those after it go on.
    for (const pid_t writer : writers) {
        const std::uintmax_t size = fs::file_size(file);
        while (fs::file_size(file) < size + 200000) sched_yield();
        kill(writer, SIGKILL);
        waitpid(writer, nullptr, 0);
    }
    capture.NoteFault("a.fault");
    capture.AddReply(sim::Wire_I2C, 0, 1, nullptr, 0);

    const std::string written = ReadFile(file);
    const std::map<DWORD, int> blocks = CountBlocks(written);
    EXPECT_EQ(1, blocks.at(0x0A0D0D0A));
    EXPECT_EQ(6, blocks.at(1));
    EXPECT_LT(200, blocks.at(6));
    EXPECT_NE(std::string::npos, written.find("fault: a.fault", written.size() - 100));

    sim::CCapture again(file);  // goes on with it
    fs::resize_file(file, 100);
    EXPECT_THROW(sim::CCapture other(file), std::runtime_error);
    EXPECT_THROW(sim::CCapture full("/dev/full"), std::runtime_error);
}
