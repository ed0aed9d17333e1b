// The host of the tests' precompiled header: no tests of its own.
