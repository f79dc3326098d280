#pragma once

#include <string>
#include <vector>

struct Id3Tag;

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

int cmd_convert(const Args& args);
int cmd_decode(const Args& args);
int cmd_info(const Args& args);
int cmd_list(const Args& args);
int cmd_log(const Args& args);
int cmd_marks(const Args& args);
int cmd_skin(const Args& args);
int cmd_tag(const Args& args);
// Remote control of the running program (cmd_remote.cpp).
int cmd_play(const Args& args);
int cmd_record(const Args& args);
int cmd_overwrite(const Args& args);
int cmd_append(const Args& args);
int cmd_insert(const Args& args);
int cmd_pause(const Args& args);
int cmd_stop(const Args& args);
int cmd_status(const Args& args);
int cmd_next(const Args& args);
int cmd_previous(const Args& args);
int cmd_step(const Args& args);

// The `key: value` lines of an ID3 version 1 tag (title, artist, album,
// year, comment where not empty, track where not 0, genre); nothing when
// the tag is not present. Shared by info and tag.
std::string tag_fields(const Id3Tag& tag);

} // namespace quillctl
