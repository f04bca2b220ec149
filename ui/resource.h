#pragma once

#include <cstddef>
#include <string>

/// What is built into the component beside its code.
struct Resource {
    const char* name;
    const char* type;
    const char* data;
    std::size_t size;  ///< bytes; 0 where the data ends with a zero byte

    std::string text() const { return size != 0 ? std::string(data, size) : std::string(data); }
};

/// The resource of that name and type. Throws `NotFoundException` for one that there isn't.
const Resource& findResource(const std::string& name, const std::string& type);
