#include "liba/critical_section.h"

namespace liba {

CriticalSection::~CriticalSection()
{
    // Entering once before destruction lets a holder on another thread finish
    // its section; destroying a mutex that is held would be undefined.
    mutex_.lock();
    mutex_.unlock();
}

} // namespace liba
