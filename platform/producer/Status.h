#pragma once

#include "gentl/GenTL.h"

#include <string>
#include <utility>

namespace nuvark {

/// Outcome of a call inside the producer: a GenTL code and, on failure, a sentence for the person who reads logs.
class [[nodiscard]] Status {
public:
    Status() = default;
    Status(GC_ERROR code, std::string text) : m_code(code), m_text(std::move(text)) {}

    bool Ok() const { return m_code == GC_ERR_SUCCESS; }
    GC_ERROR Code() const { return m_code; }
    const std::string &Text() const { return m_text; }

private:
    GC_ERROR m_code = GC_ERR_SUCCESS;
    std::string m_text;
};

/// A value, or the reason why there is none. `value` means something only when `status` is ok.
template <class T> struct [[nodiscard]] Result {
    Result(T v) : value(std::move(v)) {}
    Result(Status s) : status(std::move(s)) {}

    bool Ok() const { return status.Ok(); }

    Status status;
    T value{};
};

} // namespace nuvark
