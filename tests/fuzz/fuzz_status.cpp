// The status publication's reading side: a clipboard region as another party
// may leave it (any `used`, any bytes), read as the server reads command
// arguments and as the client reads the status and answers.
#include "app/status_publication_wire.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    status::CCommBufferClipboard c;
    std::memcpy(c.region(), data, size < status::kMappingSize ? size : status::kMappingSize);
    status::CSerializableString args;
    if (args.read(c)) {
        for (int command = 0; command <= 9; ++command)
            status::split_arguments(*args.text, status::argument_lengths(command));
    }
    status::CSerializableBool done;
    status::CQuillaphonicsStatus st;
    if (done.read(c))
        st.read(c);
    return 0;
}
