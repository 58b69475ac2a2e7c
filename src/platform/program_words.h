// What a program is started with: texts, and the lists of them that the system takes.
#pragma once

#include <string>
#include <vector>

/// The texts as a list that ends with a null pointer. It refers to them.
std::vector<char*> PointersTo(std::vector<std::string>& texts);
/// The environment of this process, each variable as "NAME=value". Not while another thread changes
/// it.
std::vector<std::string> OwnEnvironment();
