// Help, versions, manual pages and completions of the programs.
#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

#include "tests/support/service_fixture.h"

using namespace testing;

namespace {

class HelpTest : public ServiceTest {
  protected:
    static std::string text(const std::string& name) {
        std::ifstream file(PELTO_TEXTS "/" + name);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // The client's manual page without fonts and escapes.
    static std::string manualPage() {
        std::string page = text("man/pelto.1");
        for (const auto& [roff, plain] : {std::pair{R"(\\f[BIR]|\\&)", ""},
                                          {R"(\\\(aq)", "'"},
                                          {R"(\\\(dq)", "\""},
                                          {R"(\\(.))", "$1"}})
            page = std::regex_replace(page, std::regex(roff), plain);
        return page;
    }
    // Its section about the verb.
    static std::string section(const std::string& page, const std::string& verb) {
        const size_t begin = page.find(".SS pelto " + verb + "\n");
        if (begin == page.npos) return "";
        return page.substr(begin, page.find(".S", begin + 1) - begin);
    }
    std::string help(Words words) {
        words.insert(words.begin(), "help");
        return pelto(words).output;
    }
};

// The columns of a help text; of an option or a positional argument only the name.
std::vector<std::string> entries(const std::string& help) {
    std::vector<std::string> found;
    std::istringstream lines(help);
    const std::regex gap("  +"), name("-.*|[A-Z]+ .*");
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("  ", 0) != 0 || line.find("--help") != line.npos) continue;
        line.erase(0, line.find_first_not_of(' '));
        const std::sregex_token_iterator end;
        for (std::sregex_token_iterator column(line.begin(), line.end(), gap, -1); column != end;
             ++column) {
            const std::string text = *column;
            found.push_back(std::regex_match(text, name) ? text.substr(0, text.find(' ')) : text);
        }
    }
    return found;
}

TEST_F(HelpTest, IsAskedForByAVerbAndByAnOption) {
    const std::string whole = help({});
    EXPECT_EQ(whole, pelto({"--help"}).output);
    EXPECT_THAT(whole, AllOf(HasSubstr("\n  archives"), HasSubstr("\n  5  "),
                             Not(HasSubstr("--generate"))));
    const std::string status = help({"phone", "status"});
    EXPECT_EQ(status, pelto({"phone", "status", "--help"}).output);
    EXPECT_THAT(status, AllOf(HasSubstr("\n  4  no service"), HasSubstr("\n  5  ")));
    const std::string crash = help({"crash"});
    EXPECT_THAT(crash, AllOf(HasSubstr("\n  1  no tombstone"), HasSubstr("\n  2  "),
                             HasSubstr("\n  3  "), Not(HasSubstr("\n  4  "))));
}

TEST_F(HelpTest, NamesTheVersionAndTheCommit) {
    const std::string version = R"( [0-9]+\.[0-9]+\.[0-9]+( \(git [0-9a-f]{12,}(-dirty)?\))?\n)";
    const auto says = [&](const Words& command, const std::string& program) {
        const Result result = run(command);
        EXPECT_TRUE(result.code == 0 &&
                    std::regex_match(result.output, std::regex(program + version)))
            << result.output;
    };
    says(command({"--version"}), "pelto");
    says(hostCommand({"--version"}), "peltoserviced");
    says(captureCommand({"--version"}), "pelto-capture");
}

TEST_F(HelpTest, TheManualPageSaysWhatTheHelpOfEachVerbSays) {
    const std::string page = manualPage();
    for (const Words& verb : {Words{"phone", "start"}, {"logcat"}, {"capture"}, {"control"}}) {
        const std::string path = verb.size() == 1 ? verb[0] : verb[0] + " " + verb[1];
        const std::string written = section(page, path), said = help(verb);
        EXPECT_THAT(written, HasSubstr(said.substr(0, said.find('\n')) + ".\n"));
        for (const std::string& entry : entries(said)) EXPECT_THAT(written, HasSubstr(entry));
    }
    const std::string whole = help({});
    const std::regex verb("\n  ([a-z][-a-z]+) ");
    size_t verbs = 0;
    for (std::sregex_iterator found(whole.begin(), whole.end(), verb), end; found != end; ++found) {
        EXPECT_NE(section(page, (*found)[1]), "") << (*found)[1];
        ++verbs;
    }
    EXPECT_GT(verbs, 20u);
    for (size_t begin = 0; (begin = page.find(".SS pelto ", begin + 1)) != page.npos;) {
        const std::string written = page.substr(begin, page.find(".S", begin + 1) - begin);
        EXPECT_THAT(written, AnyOf(HasSubstr(" VERB ...\n"), HasSubstr("\nExit codes:\n.TP\n0\n")));
    }
    EXPECT_THAT(page,
                AllOf(HasSubstr("\n.SH ENVIRONMENT\n.TP\nPELTO_PHONE\n"),
                      HasSubstr("\n.SH EXIT STATUS\n.TP\n0\ndone\n"), Not(HasSubstr("\n\n"))));
}

// Each line: the words before the cursor, the last of them unfinished, and what they become.
TEST_F(HelpTest, BashCompletes) {
    file("/folder/inside", "");
    const std::string input = phone().folder() + "/input";
    std::ofstream(input) << R"(
cd "$1"
. "$2/bash/pelto"
completes() {
    COMP_WORDS=($1) COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    [[ $1 != *' ' ]] || COMP_WORDS[++COMP_CWORD]=
    _pelto
    [[ ${COMPREPLY[*]} == "$2" ]] || echo "$1: ${COMPREPLY[*]}"
}
completes 'pelto lo' logcat
completes 'pelto --phone phone phone st' 'start stop status'
completes 'pelto help phone sto' stop
completes 'pelto phone start --n' --no-service
completes 'pelto phone start --ca' --call-timeout
completes 'pelto phone stop --threads sta' ''
completes 'pelto debug o' 'on off'
completes 'pelto debug on o' ''
completes 'pelto debug -- of' off
completes 'pelto sf-state --call-timeout 3 of' off
completes 'pelto capture --logs pcm,ke' pcm,kernel
completes 'pelto capture A0345 --dir ' ''
completes 'pelto --phone fol' folder
completes 'pelto getprop --phone = fol' folder
completes 'pelto --gen' ''
echo done
)";
    EXPECT_EQ(run({"bash", input, phone().fsDir(), PELTO_TEXTS}).output, "done\n");
}

}  // namespace
