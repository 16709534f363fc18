// Where qlm-calib chart takes its image pairs from besides the command line:
// a folder of NAME_main.EXT / NAME_second.EXT files, or a list file with one
// pair per line. Both answer the image paths in the order main1 second1
// main2 second2 ... and throw StationError naming the folder, file or line of
// the first problem.
#pragma once

#include <string>
#include <vector>

// Every file NAME_main.EXT of directory with its NAME_second.EXT (same NAME,
// same EXT), ordered by NAME with runs of digits compared as numbers
// (pair_2 before pair_10). Files of other names are ignored. A main image
// without its second, a second without its main, or no pair at all is an error.
std::vector<std::string> PairsFromDirectory(const std::string& directory);

// Each line holds the main image's path and the second image's path,
// separated by blanks or tabs (paths without blanks). Empty lines and lines
// starting with '#' are skipped, and so is a UTF-8 byte-order mark. Relative paths are taken from the list
// file's folder. A line of another form, a file above 1 MiB or a list
// without pairs is an error.
std::vector<std::string> PairsFromListFile(const std::string& path);

// The image paths of exactly one of the three sources: the positional
// images, the folder or the list file; several or none is an error.
// Throws, naming command, unless images hold whole pairs, one at least.
void RequireImagePairs(const std::vector<std::string>& images, const std::string& command);

std::vector<std::string> ChartImagePaths(const std::vector<std::string>& images, const std::string& pairsDir,
                                         const std::string& pairsFile);
