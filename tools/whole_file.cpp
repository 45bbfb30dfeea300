// Classic NetCDF: the header is a list of dimensions, attributes and variables, all numbers big-endian, with the
// place and, by their dimensions, the size of each variable.
//
// XML with appended data: arrays have an offset into what follows the "_" of AppendedData. There each starts with
// its size or, compressed, with the number of its blocks and the size of each.
#include "whole_file.hpp"

#include "failure.hpp"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

[[noreturn]] void cut_short(const std::string &path, uint64_t is, const std::string &needed)
{
    throw failure(path + ": is cut short or damaged: it has " + std::to_string(is) + " bytes, and " + needed);
}

// ---- NetCDF -------------------------------------------------------------------------------------------------

class netcdf_header {
  public:
    netcdf_header(const std::string &path_, char version_)
        : path(path_), file(path_, std::ios::binary), size(std::filesystem::file_size(path_)),
          version(version_)
    {
        file.seekg(4);
    }
    void check();

  private:
    uint64_t number(int bytes)
    {
        uint64_t value = 0;
        for (int i = 0; i < bytes; ++i) {
            const int byte = file.get();
            if (byte < 0) cut_short(path, size, "its header goes on");
            value = value << 8 | static_cast<uint64_t>(byte);
        }
        return value;
    }
    uint64_t count() { return number(version == 5 ? 8 : 4); } // sizes and numbers of things
    void skip(uint64_t bytes)
    {
        const uint64_t padded = (bytes + 3) / 4 * 4;
        if (padded > size) cut_short(path, size, "its header goes on");
        file.seekg(static_cast<std::streamoff>(padded), std::ios::cur);
    }
    void skip_name() { skip(count()); }
    uint64_t type_size(uint64_t type)
    {
        static const uint64_t sizes[] = {0, 1, 1, 2, 4, 4, 8, 1, 2, 4, 8, 8};
        if (type < 1 || type > 11)
            throw failure(path + ": is damaged: its header has a type " + std::to_string(type));
        return sizes[type];
    }
    // The number of entries of a list, whose tag is 0 where there are none.
    uint64_t entries()
    {
        number(4);
        return count();
    }
    void skip_attributes()
    {
        for (uint64_t left = entries(); left > 0; --left) {
            skip_name();
            const uint64_t bytes = type_size(number(4));
            const uint64_t n = count();
            if (n > size) cut_short(path, size, "its header goes on");
            skip(n * bytes);
        }
    }

    const std::string &path;
    std::ifstream file;
    uint64_t size;
    char version;
};

void netcdf_header::check()
{
    const uint64_t nrecords = count();
    const bool streaming = nrecords == (version == 5 ? UINT64_MAX : UINT32_MAX);
    std::vector<uint64_t> dims;
    for (uint64_t left = entries(); left > 0; --left) {
        skip_name();
        dims.push_back(count());
    }
    skip_attributes();
    uint64_t end = 0, record = 0, last_begin = 0, last_bytes = 0, nvars = 0;
    for (uint64_t left = entries(); left > 0; --left) {
        skip_name();
        uint64_t values = 1;
        bool records = false;
        const uint64_t rank = count();
        if (rank > 1024)
            throw failure(path + ": is damaged: its header has a variable of " + std::to_string(rank) +
                          " dimensions");
        for (uint64_t d = 0; d < rank; ++d) {
            const uint64_t dim = count();
            if (dim >= dims.size())
                throw failure(path + ": is damaged: its header names a dimension that is not there");
            if (d == 0 && dims[dim] == 0)
                records = true;
            else if (__builtin_mul_overflow(values, dims[dim], &values))
                cut_short(path, size, "its variables are larger than any file");
        }
        skip_attributes();
        uint64_t bytes;
        if (__builtin_mul_overflow(values, type_size(number(4)), &bytes))
            cut_short(path, size, "its variables are larger than any file");
        count(); // the size as the header has it, which large variables overflow
        const uint64_t begin = number(version == 1 ? 4 : 8);
        if (!records) {
            end = std::max(end, begin + bytes);
            continue;
        }
        record += (bytes + 3) / 4 * 4;
        ++nvars;
        if (begin >= last_begin) {
            last_begin = begin;
            last_bytes = bytes;
        }
    }
    if (nvars == 1) record = last_bytes; // a single one is not padded
    if (nvars > 0 && nrecords > 0 && !streaming)
        end = std::max(end, last_begin + (nrecords - 1) * record + last_bytes);
    if (end > size) cut_short(path, size, "its variables go on to byte " + std::to_string(end));
}

// ---- XML ----------------------------------------------------------------------------------------------------

// The value of an attribute within a tag; empty: it has none.
std::string attribute(const std::string &tag, const char *name)
{
    const std::string key = std::string(" ") + name + "=\"";
    size_t from = tag.find(key);
    if (from == std::string::npos) return "";
    from += key.size();
    return tag.substr(from, tag.find('"', from) - from);
}

class appended_data {
  public:
    appended_data(const std::string &path_)
        : path(path_), file(path_, std::ios::binary), size(std::filesystem::file_size(path_))
    {
    }
    void check();

  private:
    bool read_markup();
    std::vector<uint64_t> numbers(uint64_t at, uint64_t count);
    void check_array(uint64_t offset);

    const std::string &path;
    std::ifstream file;
    uint64_t size, start = 0; // of the data
    std::string markup;       // what comes before the data
    bool swapped = false, compressed = false;
    unsigned width = 4;
};

// Reads up to AppendedData. False: there is none.
bool appended_data::read_markup()
{
    const std::string mark = "<AppendedData";
    std::vector<char> block(1 << 20);
    size_t at = std::string::npos;
    while (at == std::string::npos && file) {
        file.read(block.data(), static_cast<std::streamsize>(block.size()));
        const size_t from = markup.size() < mark.size() ? 0 : markup.size() - mark.size();
        markup.append(block.data(), static_cast<size_t>(file.gcount()));
        at = markup.find(mark, from);
        if (markup.size() > size_t{1} << 30) return false; // arrays in place, and large
    }
    if (at == std::string::npos) return false;
    const size_t end = markup.find('>', at);
    const size_t underscore = end == std::string::npos ? end : markup.find('_', end);
    if (underscore == std::string::npos) cut_short(path, size, "its appended data is missing");
    start = underscore + 1;
    if (attribute(markup.substr(at, end - at), "encoding") != "raw") {
        // VTK doesn't look behind it
        std::string last(static_cast<size_t>(std::min<uint64_t>(size, 4096)), '\0');
        file.clear();
        file.seekg(-static_cast<std::streamoff>(last.size()), std::ios::end);
        file.read(last.data(), static_cast<std::streamsize>(last.size()));
        if (last.find("</AppendedData") == std::string::npos)
            cut_short(path, size, "its appended data goes on");
        return false;
    }
    markup.resize(at);
    return true;
}

std::vector<uint64_t> appended_data::numbers(uint64_t at, uint64_t count)
{
    if (count > size / width || at + count * width > size) cut_short(path, size, "its appended data goes on");
    std::vector<unsigned char> bytes(static_cast<size_t>(count) * width);
    file.clear();
    file.seekg(static_cast<std::streamoff>(at));
    file.read(reinterpret_cast<char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    std::vector<uint64_t> values(static_cast<size_t>(count));
    for (size_t i = 0; i < bytes.size(); ++i) {
        const size_t byte = i % width;
        values[i / width] |= static_cast<uint64_t>(bytes[i]) << (8 * (swapped ? width - 1 - byte : byte));
    }
    return values;
}

void appended_data::check_array(uint64_t offset)
{
    const uint64_t at = start + offset;
    const uint64_t first = numbers(at, 1).front();
    uint64_t end = at + width;
    if (!compressed) {
        if (first > size || end + first > size) cut_short(path, size, "its appended data goes on");
        return;
    }
    end += (2 + first) * width;
    for (const uint64_t block : numbers(at + 3 * width, first))
        end += std::min(block, size + 1);
    if (end > size) cut_short(path, size, "its appended data goes on to byte " + std::to_string(end));
}

void appended_data::check()
{
    if (!read_markup()) return;
    const size_t root = markup.find("<VTKFile");
    const std::string tag = markup.substr(root, markup.find('>', root) - root);
    swapped = attribute(tag, "byte_order") == "BigEndian";
    compressed = !attribute(tag, "compressor").empty();
    width = attribute(tag, "header_type") == "UInt64" ? 8 : 4;
    for (size_t from = markup.find('<'); from != std::string::npos; from = markup.find('<', from + 1)) {
        const std::string one = markup.substr(from, markup.find('>', from) - from);
        const std::string offset = attribute(one, "offset");
        if (!offset.empty() && offset.find_first_not_of("0123456789") == std::string::npos &&
            offset.size() < 19)
            check_array(std::stoull(offset));
    }
}

} // namespace

void check_whole_file(const std::string &path, const std::string &head)
{
    if (head.size() > 4 && head.compare(0, 3, "CDF") == 0 && (head[3] == 1 || head[3] == 2 || head[3] == 5))
        netcdf_header(path, head[3]).check();
    else if (head.find("<VTKFile") != std::string::npos)
        appended_data(path).check();
}

bool is_xml_without_nodes(const std::string &path, const std::string &type)
{
    constexpr uintmax_t most = 1 << 20; // who has nothing to tell is short
    std::error_code code;
    if (const uintmax_t size = std::filesystem::file_size(path, code); code || size > most) return false;
    std::ifstream file(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    for (char &c : text)
        c = c == '\'' ? '"' : isspace(static_cast<unsigned char>(c)) != 0 ? ' ' : c;
    const auto tag_at = [&](size_t at) { return text.substr(at, text.find('>', at) - at); };
    const size_t root = text.find("<VTKFile ");
    if (root == std::string::npos || attribute(tag_at(root), "type") != type ||
        text.find("</VTKFile") == std::string::npos)
        return false;
    text.resize(std::min(text.find("<AppendedData"), text.size()));
    for (size_t at = text.find("<Piece", root); at != std::string::npos; at = text.find("<Piece", at + 1)) {
        const std::string nodes = attribute(tag_at(at), "NumberOfPoints");
        if (nodes.empty() || nodes.find_first_not_of("0 ") != std::string::npos) return false;
    }
    return true;
}
