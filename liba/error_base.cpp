#include "liba/error_base.h"

namespace liba {

std::wstring ErrorBase::error_text() const
{
    std::wstring all;
    for (const auto& e : errors_) {
        if (!all.empty())
            all += L'\n';
        all += e;
    }
    return all;
}

} // namespace liba
