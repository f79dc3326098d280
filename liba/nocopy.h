#pragma once

namespace liba {

// Base of every object that owns a resource: copying one is a compile error.
class Nocopy {
protected:
    Nocopy() = default;
    ~Nocopy() = default;

public:
    Nocopy(const Nocopy&) = delete;
    Nocopy& operator=(const Nocopy&) = delete;
};

} // namespace liba
