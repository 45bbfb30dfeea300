// Files that end before what they say they hold.
#pragma once

#include <string>

// Throws failure where the file's own figures tell that its end is missing: NetCDF in its classic forms, and
// VTK's XML with appended data. The readers of these take what is missing for zeros. head: its first bytes.
void check_whole_file(const std::string &path, const std::string &head);

// Whether the file is of that type of VTK's XML and says that it has no nodes: its readers ask even then for all
// elements that nodes and cells would have.
bool is_xml_without_nodes(const std::string &path, const std::string &type);
