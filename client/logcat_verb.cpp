#include <regex.h>
#include <sim/userspace/log.h>
#include <sim/userspace/logcat.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "client/verbs.h"
#include "client/wait_options.h"

namespace pelto {
namespace {

struct LogcatVerb {
    bool dump = false;
    bool clear = false;
    bool silent = false;
    std::string last;
    std::vector<std::string> filters;
    std::string until;          // the log is followed up to a line that matches
    double timeoutSeconds = 0;  // 0: no limit
};

sim::LogcatOptions logcatOptions(const LogcatVerb& verb) {
    std::vector<std::string> words;
    if (verb.dump) words.push_back("-d");
    if (verb.clear) words.push_back("-c");
    if (verb.silent) words.push_back("-s");
    if (!verb.last.empty()) words.insert(words.end(), {"-t", verb.last});
    words.insert(words.end(), verb.filters.begin(), verb.filters.end());
    sim::LogcatOptions options;
    const std::string wrong = options.parse(words);
    if (!wrong.empty()) throw Failure(kUsage, "logcat: " + wrong + "; see pelto logcat --help");
    return options;
}

// A compiled extended regular expression.
class Expression {
  public:
    explicit Expression(const std::string& text) {
        if (regcomp(&mCompiled, text.c_str(), REG_EXTENDED | REG_NOSUB) != 0) {
            throw Failure(kUsage, "logcat: --until takes an extended regular expression");
        }
    }
    ~Expression() { regfree(&mCompiled); }
    Expression(const Expression&) = delete;
    Expression& operator=(const Expression&) = delete;

    bool matches(std::string_view text) const {
        return regexec(&mCompiled, std::string(text).c_str(), 0, nullptr, 0) == 0;
    }

  private:
    regex_t mCompiled;
};

// Prints the lines that pass the filters, oldest first, up to the first that matches --until.
int followUntil(const std::string& directory, const LogcatVerb& verb,
                const sim::LogcatOptions& options, const Deadline& deadline) {
    const Expression wanted(verb.until);
    sim::LogReader reader(directory);
    bool found = false;
    for (;;) {
        reader.read([&](std::string_view text) {
            sim::LogLine line;
            if (found || !options.passes(text) || !line.parse(text)) return;
            printf("%.*s\n", static_cast<int>(text.size()), text.data());
            found = wanted.matches(line.message);
        });
        if (found) return kDone;
        fflush(stdout);
        if (deadline.passed() || !reader.wait(deadline.leftMillis())) {
            if (!deadline.passed()) throw Failure(kNoPhone, "logcat: the phone's log has gone");
            throw Failure(kTimeout, "logcat: no line matched in time");
        }
    }
}

int logcat(Client& client, const LogcatVerb& verb) {
    const Deadline deadline(verb.timeoutSeconds);
    const sim::LogcatOptions options = logcatOptions(verb);
    sim::Log& log = client.phone().log();
    if (options.clear) {
        if (log.clear()) return kDone;
        throw Failure(kFailed, std::string("logcat: not cleared: ") + strerror(errno));
    }
    if (!verb.until.empty()) return followUntil(log.directory(), verb, options, deadline);
    if (sim::runLogcat(log.directory(), options, STDOUT_FILENO) == 0) return kDone;
    throw Failure(kFailed, "logcat: the log could not be read or the output not be written");
}

}  // namespace

void addLogcatVerb(CLI::App& app, Client& client) {
    auto options = std::make_shared<LogcatVerb>();
    CLI::App* verb = app.add_subcommand("logcat", "Show the phone's log and follow it");
    verb->add_flag("-d", options->dump, "Show what is there and end");
    verb->add_flag("-c", options->clear, "Drop every line");
    verb->add_flag("-s", options->silent, "Only tags that a filter names");
    verb->add_option("-t", options->last, "Show the last N lines and end")->type_name("N");
    CLI::Option* until = verb->add_option("--until", options->until,
                                          "Follow up to the first line whose message matches this "
                                          "extended regular expression")
                             ->check([](const std::string& regex) {
                                 return regex.empty() ? "takes an expression" : "";
                             })
                             ->type_name("REGEX");
    addTimeout(verb, options->timeoutSeconds, "With --until: exit code 5 after so many seconds")
        ->needs(until);
    verb->add_option("FILTER", options->filters, "TAG:P, TAG or *:P, with P of v d i w e f s");
    client.onVerb(
        verb,
        {{kFailed, "the log cannot be read, followed or cleared, or the output not be written"},
         {kNoPhone, "there is no phone in the folder, or with --until it has gone"},
         {kTimeout, "no line matched --until in time"}},
        [&client, options] { return logcat(client, *options); });
}

}  // namespace pelto
