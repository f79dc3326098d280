#pragma once

#include <string>
#include <vector>

// The commands of quillctl, one file each. A command returns kDone, kFailed
// (after one line on standard error naming the file or command and why) or
// kUsage when its arguments are wrong (quillctl then prints its synopsis).
namespace quillctl {

using Args = std::vector<std::string>;

inline constexpr int kDone = 0;
inline constexpr int kFailed = 1;
inline constexpr int kUsage = 2;

// Prints "quillctl: WHAT: WHY" on standard error and returns kFailed.
int fail(const std::string& what, const std::string& why);

int cmd_list(const Args& args);
int cmd_log(const Args& args);
int cmd_marks(const Args& args);
int cmd_skin(const Args& args);

} // namespace quillctl
