// A variable of the environment for as long as the object lives; then it is what it was. While
// other threads read the environment it must not come or go.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

class EnvironmentSetting {
public:
    EnvironmentSetting(const std::string& name, const std::string& value) : name_(name) {
        if (const char* former = std::getenv(name.c_str()); former != nullptr) {
            former_ = former;
        }
        setenv(name.c_str(), value.c_str(), 1);
    }
    ~EnvironmentSetting() {
        if (former_) {
            setenv(name_.c_str(), former_->c_str(), 1);
        } else {
            unsetenv(name_.c_str());
        }
    }
    EnvironmentSetting(const EnvironmentSetting&) = delete;
    EnvironmentSetting& operator=(const EnvironmentSetting&) = delete;

private:
    const std::string name_;
    std::optional<std::string> former_;
};
