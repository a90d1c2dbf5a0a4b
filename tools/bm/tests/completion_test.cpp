#include <cstdio>
#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>

#include "run_bm.h"
#include "staged_host.h"

namespace bm::test {
namespace {

std::string output_of(const std::string& command)
{
    std::FILE* pipe = popen(command.c_str(), "r");
    std::string text;
    for (int c = 0; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
    pclose(pipe);
    return text;
}

TEST(Completion, BashCompletesCommandsAndTheirOptions)
{
    const outcome seen = run_bm({"completion", "bash"});
    EXPECT_EQ(seen.status, 0);
    const scratch_directory work;
    std::ofstream(work.path() / "bm") << seen.out;
    const std::string load = "bash -c '. " + (work.path() / "bm").string() + "; COMP_WORDS=(";
    EXPECT_EQ(output_of(load + "bm rep); COMP_CWORD=1; _bm; echo \"${COMPREPLY[*]}\"'"), "repair\n");
    EXPECT_EQ(output_of(load + "bm repair --dry); COMP_CWORD=2; _bm; echo \"${COMPREPLY[*]}\"'"), "--dry-run\n");
    EXPECT_EQ(output_of(load + "bm size --em); COMP_CWORD=2; _bm; echo \"${COMPREPLY[*]}\"'"), "--emit\n");
    EXPECT_EQ(output_of(load + "bm ls --js); COMP_CWORD=2; _bm; echo \"${COMPREPLY[*]}\"'"), "--json\n");
    EXPECT_EQ(output_of(load + "bm ls --dry); COMP_CWORD=2; _bm; echo \"${COMPREPLY[*]}\"'"), "\n");
}

TEST(Completion, EveryShellHearsOfEveryCommand)
{
    const std::string help = run_bm({"--help"}).out;
    for (const char* shell : {"bash", "zsh", "fish"}) {
        const std::string text = run_bm({"completion", shell}).out;
        for (const char* name :
             {"check", "completion", "demo", "ls", "master", "read", "repair", "rm", "size", "watch"}) {
            EXPECT_NE(help.find(std::string("  ") + name), std::string::npos) << name;
            EXPECT_NE(text.find(name), std::string::npos) << shell << " " << name;
        }
    }
    EXPECT_EQ(run_bm({"completion", "csh"}).status, 64);
    EXPECT_EQ(run_bm({"completion"}).status, 64);
}

TEST(Completion, FishGetsALinePerOption)
{
    const std::string text = run_bm({"completion", "fish"}).out;
    EXPECT_NE(text.find("complete -c bm -n '__fish_seen_subcommand_from repair' -l dry-run -d "), std::string::npos);
    EXPECT_NE(text.find("complete -c bm -l json -d "), std::string::npos);
}

} // namespace
} // namespace bm::test
