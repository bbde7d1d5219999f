#pragma once
#include <QString>

// Finds the programs and resource files the system runs and reads: libexec/velmora
// and share/velmora beside the program's own bin folder (in an install and in the
// build tree), then PATH.
// Resource names of the original desktop map to the Debian tools that stand in
// for them ("cdparanoia" is cd-paranoia, "atomicparsley" is AtomicParsley, ...).
namespace ResourceLocator {

// A program by resource name; "" when it is nowhere to be found.
QString pathForTool(const QString& name);
// A program of the system's own (libexec/velmora), never one found on PATH; "" when none.
QString ownToolPath(const QString& name);
// A data resource (settings files, "InitInfo", icons) by relative path; "" when missing.
QString pathForResource(const QString& relativePath);
// The Debian program that stands in for a resource name.
QString programNameForResource(const QString& name);

} // namespace ResourceLocator
