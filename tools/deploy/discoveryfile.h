// Reads discovery documents.
#pragma once

#include <filesystem>
#include <string>

#include "tools/deploy/offer.h"

// Reads a document as the library writes it: a line for each value, with no character escaped. Of several devices the
// first counts. Returns what is wrong with the document, a sentence; empty: nothing.
std::string ReadDiscoveryFile(const std::filesystem::path& file, Discovery& discovery);
