// SPDX-License-Identifier: LGPL-2.1-or-later
// An open input with the library running on it.
#ifndef TOOLS_SESSION_H
#define TOOLS_SESSION_H

#include <optional>
#include <string>
#include <vector>

#include "options.h"
#include "orva_demux.h"
#include "orva_si/notify.h"

namespace tool {

class session {
public:
    session() = default;
    ~session();
    session(const session &) = delete;
    session &operator=(const session &) = delete;

    // Opens the input and starts the library; returns when the library can take sections. The exit
    // status when that fails, with the reason said on standard error. listener: null for a command
    // that the library tells nothing.
    std::optional<int> open(const options &chosen, SiNotifyFunc listener = nullptr);

    OrvaDemuxStatus status() const;
    // Whether every filter was given all that the ended input holds for it, and the library has
    // done with that.
    bool is_at_rest() const;
    // The services whose events the input was seen to carry.
    std::vector<SiEitRequest> event_services() const;
    // Whether the library had no room for something: what it holds is not all that came.
    static bool store_was_full();

private:
    OrvaDemux *demux = nullptr;
    bool initialised = false;
};

// How far the input was read, in a progress line; nothing when that is not known.
std::string reading_text(const OrvaDemuxStatus &status);

// What an error of the input says to people, and the exit status that it leads to.
std::string input_error_text(const std::string &input, OrvaDemuxError error, int system_error);
int input_error_status(OrvaDemuxError error);

} // namespace tool

#endif
