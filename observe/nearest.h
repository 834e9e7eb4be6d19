// nearest.h - how far two names are from each other, for whoever wrote one and meant the other.
#ifndef OBSERVE_NEAREST_H
#define OBSERVE_NEAREST_H

#include <string>
#include <string_view>
#include <vector>

namespace observe
{

// How many characters have to be put in, left out, replaced or exchanged with their neighbour to
// make one name of the other (the optimal string alignment distance). Bytes that are no UTF-8 count
// singly.
size_t Distance(std::string_view one, std::string_view other);

// In what little two different names differ: "the letter case", "a blank" or "one letter"; null
// when in nothing, or in more than that.
const char *SmallDifference(std::string_view one, std::string_view other);

// The candidate that `name` was probably meant to be: the nearest one, the first of several, if it
// is at most two steps away, and fewer than the name has letters. Empty when there is none.
std::string Nearest(std::string_view name, const std::vector<std::string> &candidates);

}  // namespace observe

#endif
