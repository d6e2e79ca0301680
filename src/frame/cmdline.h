// The command line: a hand-written scanner over gatr's exact option strings.
#pragma once

/// Fills work::options, the argument pointers and -i entries of work::archiveList. Exits 0
/// after help or version output and 1 after any error, printing to standard output/error.
void parseCommandLine(int argc, char** argv);

/// Prints the usage text to standard output.
void printUsage();
