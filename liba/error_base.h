#pragma once

#include <string>
#include <vector>

namespace liba {

// Collects error texts in the object that met them, in place of exceptions.
// An object is good while it has collected none; its later operations then
// do nothing. Threads: used by the owner's thread only.
class ErrorBase {
public:
    virtual void add_error(const std::wstring& text) { errors_.push_back(text); }
    virtual ~ErrorBase() = default;

    bool good() const { return errors_.empty(); }
    const std::vector<std::wstring>& errors() const { return errors_; }
    // All collected texts, one a line, for a log line or a message.
    std::wstring error_text() const;
    void clear_errors() { errors_.clear(); }

private:
    std::vector<std::wstring> errors_;
};

} // namespace liba
