// SPDX-License-Identifier: MIT
// Outputs that fail half-way: a full disk, and an interruption. Each happens to a process of its own.
#include "image/image_write.h"
#include "image/interruption.h"
#include "image/output_file.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace panoval::image::test
{

namespace
{

class FailingOutput : public ScratchFolder
{
protected:
    // What waitpid says about a child that runs this.
    template <class Body>
    static int status_of_child(const Body& body)
    {
        const pid_t child = fork();
        if (child == 0) {
            body();
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return status;
    }

    // A file system that takes no more than this many bytes.
    static void limit_file_size(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {bytes, bytes};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
};

TEST_F(FailingOutput, AFullDiskIsExplainedAndLeavesNothing)
{
    for (const char* name : {"a.png", "a.tif", "a.jpg", "a.ppm", "a.pam"})
        for (const rlim_t room : {rlim_t{0}, rlim_t{1000}, rlim_t{20000}}) {
            const int status = status_of_child([&] {
                const Image image = test_picture(400, 300, 3, 8);
                limit_file_size(room);
                const std::string error = error_of([&] { write_image(in_folder(name), image); });
                _exit(contains(error, std::string(name) + ": found an error while writing: ") &&
                              contains(error, "expected enough room")
                          ? 7
                          : 1);
            });
            ASSERT_TRUE(WIFEXITED(status));
            EXPECT_EQ(WEXITSTATUS(status), 7) << name << " in " << room << " bytes";
            EXPECT_TRUE(names().empty()) << name << " in " << room << " bytes";
        }
}

TEST_F(FailingOutput, AnInterruptionRemovesWhatIsUnfinished)
{
    write_text("done.txt", "older");
    const int status = status_of_child([&] {
        remove_outputs_on_interruption();
        OutputFile first(in_folder("done.txt"));
        OutputFile second(in_folder("new.txt"));
        first.write("newer");
        std::raise(SIGTERM);
    });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << "it still ends as interrupted";
    EXPECT_EQ(names(), std::vector<std::string>{"done.txt"});
    EXPECT_EQ(read_text("done.txt"), "older");
}

} // namespace

} // namespace panoval::image::test
