#include "liba/text.h"
#include "os/log.h"
#include "os/path.h"
#include "tools/commands.h"

namespace quillctl {

int cmd_log(const Args& args)
{
    if (args.size() != 1 || (args[0] != "on" && args[0] != "off"))
        return kUsage;
    os::init_path_macros();
    if (!os::ensure_app_data())
        return fail("log", "can't create " + liba::to_utf8(os::expand_path(L"%app_data%")));
    if (!os::set_log_switch(args[0] == "on"))
        return fail("log", "can't write " + liba::to_utf8(os::expand_path(L"%app_data%/registry.xml")));
    return kDone;
}

} // namespace quillctl
