// Carries the headers that are read once for all test programs, and has no tests of its own.
