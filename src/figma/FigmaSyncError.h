#pragma once

#include <exception>
#include <string>

namespace varnel {

// Why a publish or sync run stopped, as the flow's band tells the user.
struct FigmaSyncError {
    enum class Kind {
        network,
        badFileURL,
        tokenRejected,
        fileNotFound,
        boardNotFound,
        screensChanged
    };

    Kind kind = Kind::network;
    std::string description; // what went wrong underneath, for logs; never shown

    bool operator==(const FigmaSyncError&) const = default;

    // The one line the UI shows.
    std::string message() const;

    // Maps what a request threw: 401 and 403 are the token, 404 the file, all else the network.
    static FigmaSyncError from(std::exception_ptr error);
};

} // namespace varnel
