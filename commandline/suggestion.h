#pragma once

#include <string>
#include <vector>

namespace commandline {

// The known word that `word` may be a misspelling of: the one with the fewest edits between them,
// of equal ones the first; "" when none is near, or the word itself is known. An edit adds, drops
// or replaces a character or exchanges two neighbours; near is one edit for each three characters
// of the longer word, and three at most.
std::string nearest(const std::string& word, const std::vector<std::string>& known);

}  // namespace commandline
