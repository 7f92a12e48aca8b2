#pragma once

#include <string>

namespace CLI {
class App;
}

namespace commandline {

// The verb below `app`, or the long option that it takes, which `word` may be a misspelling of; ""
// when none is near.
std::string suggestionFor(const std::string& word, const CLI::App& app);

// The message about words that were not expected; `suggestion` may be empty.
std::string unexpected(const std::string& words, const std::string& suggestion);

// The same for the words that the parsed app has not taken. The first gets a suggestion, from the
// innermost verb that has one.
std::string unexpectedWords(const CLI::App& app);

}  // namespace commandline
