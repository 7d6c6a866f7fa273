#pragma once

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

// Environment variables and the working directory changed for the life of the
// object: the destructor puts back every variable it touched and the folder
// that was current when it was made, however the test ends.
class ScopedEnvironment {
public:
    ScopedEnvironment() = default;
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
    ~ScopedEnvironment()
    {
        for (auto it = saved.rbegin(); it != saved.rend(); ++it) {
            it->second ? ::setenv(it->first.c_str(), it->second->c_str(), 1) : ::unsetenv(it->first.c_str());
        }
        std::error_code ignored;
        std::filesystem::current_path(directory, ignored);
    }

    void Set(const std::string& name, const std::string& value)
    {
        Save(name);
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    void Unset(const std::string& name)
    {
        Save(name);
        ::unsetenv(name.c_str());
    }

private:
    void Save(const std::string& name)
    {
        const char* value = std::getenv(name.c_str());
        saved.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
    }

    std::vector<std::pair<std::string, std::optional<std::string>>> saved;
    std::filesystem::path directory = std::filesystem::current_path();
};
