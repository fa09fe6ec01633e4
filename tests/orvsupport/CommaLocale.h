#pragma once

#include <string>

/// Switches the process to a locale whose decimal point is a comma, for a scope.
///
/// Where the system has none installed, one is compiled into a temporary folder. Changes the process environment and
/// locale: no other thread may run meanwhile.
class CommaLocale {
public:
    CommaLocale();
    ~CommaLocale();
    CommaLocale(const CommaLocale &) = delete;
    CommaLocale &operator=(const CommaLocale &) = delete;

    /// False when the system can neither load nor compile such a locale.
    bool IsActive() const;

private:
    std::string m_folder; // compiled locales; empty: none were needed
};
