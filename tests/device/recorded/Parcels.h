#pragma once

#include <string>
#include <utility>
#include <vector>

// Every kind of request and reply of the two interfaces, packed by whichever libbinder this is linked to: a
// name without blanks, and the bytes as lower-case hexadecimal digits.
std::vector<std::pair<std::string, std::string>> packParcels();
