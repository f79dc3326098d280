#include "audio/pipeline.h"

#include "liba/fatal.h"

namespace audio {

void reject_drive(const WrongDrive& which)
{
    liba::fatal(which.location, which.text);
}

} // namespace audio
