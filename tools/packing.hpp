// Values and lists as bytes, for messages between processes of one program.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

class packer {
  public:
    template <typename T> void add(const T &value)
    {
        static_assert(std::is_trivially_copyable_v<T>, "bytes say it all");
        bytes.append(reinterpret_cast<const char *>(&value), sizeof value);
    }
    template <typename T> void add_list(const std::vector<T> &list)
    {
        static_assert(std::is_trivially_copyable_v<T>, "bytes say it all");
        add_bytes(list.data(), list.size() * sizeof(T));
    }
    void add_text(const std::string &text) { add_bytes(text.data(), text.size()); }
    void add_bytes(const void *from, size_t count)
    {
        add(static_cast<uint64_t>(count));
        bytes.append(static_cast<const char *>(from), count);
    }

    std::string bytes;
};

// Takes out what was packed, in the same order.
class unpacker {
  public:
    explicit unpacker(const std::string &bytes_) : bytes(bytes_) {}
    bool at_end() const { return at >= bytes.size(); }
    template <typename T> T take()
    {
        T value;
        memcpy(&value, bytes.data() + at, sizeof value);
        at += sizeof value;
        return value;
    }
    template <typename T> std::vector<T> take_list()
    {
        const auto count = static_cast<size_t>(take<uint64_t>());
        std::vector<T> list(count / sizeof(T));
        if (count > 0) memcpy(list.data(), bytes.data() + at, count);
        at += count;
        return list;
    }
    std::string take_text()
    {
        const auto count = static_cast<size_t>(take<uint64_t>());
        at += count;
        return bytes.substr(at - count, count);
    }

  private:
    const std::string &bytes;
    size_t at = 0;
};
