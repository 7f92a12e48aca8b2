// Stands in for archive_read_verbs.cpp in a build without libarchive.
#include "client/archives.h"

void pelto::addArchiveReaders(CLI::App&, Client&) {}
