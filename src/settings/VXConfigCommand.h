#pragma once

#include <ostream>
#include <string>
#include <vector>

// "velorixhelper config": reads and writes the preferences from the command line.
//   list            every key with its value, one "key = value" a line ("(not set)" when absent;
//                   control characters and backslashes shown as C escapes so each value keeps to one line)
//   get KEY         the value alone, exactly as stored
//   set KEY VALUE   stores VALUE (strings exactly as given; integers, booleans and dates checked and
//                   written in their canonical form)
//   unset KEY       removes the key
// The keys are the preference keys plus "start_at_login", the autostart entry.
class VXConfigCommand {
public:
    // args are the words after "config". Returns the exit status: 0 done; 1 the key is not set (get) or the
    // value could not be written; 2 wrong usage, an unknown key or a value of the wrong type.
    static int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);
};
