// follow.h - shows a log while it grows.
#ifndef TOOLS_LOG_FOLLOW_H
#define TOOLS_LOG_FOLLOW_H

#include <cstddef>
#include <string>
#include <vector>

namespace klog
{

// What was shown of a log so far.
struct Shown {
    std::string start;            // the file's first bytes: others mean another file
    size_t size = 0;              // of the file, in bytes
    size_t records = 0;           // shown
    std::vector<size_t> decided;  // of each run, the arrivals whose outcome was shown
};

// What is new in `content`, the whole of the file now, since it was last shown: its complete
// records, each with its meaning, and each outcome as soon as nothing can change it. A file that
// was emptied or replaced is shown from its start.
std::string ShowNews(Shown &shown, const std::string &content);

}  // namespace klog

#endif
