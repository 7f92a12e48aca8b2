#include "commandline/suggestion.h"

#include <algorithm>

namespace commandline {
namespace {

// The optimal string alignment distance: no character is edited twice. Row i, column j is the
// distance of the first i characters of one from the first j of the other.
size_t editsBetween(const std::string& one, const std::string& other) {
    std::vector<std::vector<size_t>> edits(one.size() + 1, std::vector<size_t>(other.size() + 1));
    for (size_t i = 0; i <= one.size(); ++i) {
        for (size_t j = 0; j <= other.size(); ++j) {
            size_t& best = edits[i][j];
            if (i == 0 || j == 0) {
                best = i + j;
                continue;
            }
            const bool same = one[i - 1] == other[j - 1];
            best = std::min(
                {edits[i - 1][j] + 1, edits[i][j - 1] + 1, edits[i - 1][j - 1] + (same ? 0 : 1)});
            if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1])
                best = std::min(best, edits[i - 2][j - 2] + 1);
        }
    }
    return edits[one.size()][other.size()];
}

}  // namespace

std::string nearest(const std::string& word, const std::vector<std::string>& known) {
    constexpr size_t kCharactersPerEdit = 3, kMostEdits = 3;
    std::string found;
    size_t fewest = SIZE_MAX;
    for (const std::string& candidate : known) {
        const auto [shorter, longer] = std::minmax({word.size(), candidate.size()});
        const size_t limit = std::min(longer / kCharactersPerEdit, kMostEdits);
        if (longer - shorter > limit) continue;  // also bounds the work for a long word
        const size_t edits = editsBetween(word, candidate);
        // 0 edits: a known word in the wrong place, which is no help.
        if (edits > 0 && edits <= limit && edits < fewest) {
            found = candidate;
            fewest = edits;
        }
    }
    return found;
}

}  // namespace commandline
