// Stands in for archive_reader.cpp in a build without libarchive.
#include "client/archives.h"

void pelto::addArchiveReaders(CLI::App&, Client&) {}
