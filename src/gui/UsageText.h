#pragma once

#include <string>

// What "--help" and "--version" print. Plain text without Qt: both are
// answered before the application object exists, so they need no display,
// and the manual page is made from the help text.
class UsageText {
public:
    // The usage: synopsis, one row for each switch, the files the program
    // uses, the privilege it needs and the signals it obeys. Lines fit in 80
    // columns.
    static std::string Help();

    // "quorvy (Tarnvel DHCP Server) <version>" and a line end.
    static std::string Version();
};
