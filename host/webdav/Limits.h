// Every limit of the WebDAV server, in one place. docs/security.md has the same table for the people who run it, and a test
// compares the two.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace webdav::limits {

// Connections. Those that wait for a request are closed for new ones; those that are being answered are not.
constexpr std::size_t connections = 40;
constexpr std::size_t connectionsOfOneAddress = 32;
constexpr std::size_t connectionsNotLetIn = 16;  // which have not passed the checks of Access.h yet
constexpr std::chrono::seconds freshTime{1};     // for which a new connection is closed only when no other can be
constexpr std::size_t transfersKept = 12;        // bodies and answers that wait for their clients; of more than these
constexpr std::chrono::seconds rateAfter{1};     // the slowest is closed for a new connection, but none before this time
constexpr std::size_t waitingAtOnce = 12;        // requests that wait for other requests
constexpr std::size_t connectionsLeaving = 8;    // that are being closed for new ones
constexpr std::chrono::seconds idleTime{75};     // between two requests
constexpr std::chrono::seconds headerTime{20};
constexpr std::chrono::seconds bodyStall{60};
constexpr std::uint64_t bodyBytesPerSecond = 1024;  // the least
constexpr std::chrono::seconds answerStall{20};
constexpr std::uint64_t answerBytesPerSecond = 4096;     // the least
constexpr std::chrono::seconds slowAfter{30};            // a body or answer below slowBytesPerSecond
constexpr std::uint64_t slowBytesPerSecond = 32 * 1024;  // is closed for a new connection when none waits for a request
constexpr std::chrono::seconds lingerTime{2};            // for the client to read the last answer
constexpr std::chrono::seconds timeToFinish{30};         // after Ctrl-C, for answers under way
constexpr std::chrono::seconds timeToStore{60};          // after that, for what is being stored
constexpr std::chrono::seconds claimPatience{45};        // for which a request waits for a file that another one uses

// Requests.
constexpr std::size_t headerBytes = 32 * 1024;
constexpr std::size_t bufferBytes = 64 * 1024;   // with less, uploads are slow; also the longest chunk header
constexpr std::size_t framingBytes = 64 * 1024;  // of a body's chunk headers and trailers,
constexpr std::size_t framingPerBodyByte = 8;    // and so many more for each byte of the body itself
constexpr std::size_t drainBytes = 256 * 1024;   // of a refused request, read so that the client sees the refusal
constexpr std::size_t targetBytes = 16 * 1024;
constexpr std::size_t pathComponents = 128;
constexpr std::size_t treeFailures = 100;  // of entries of a tree; then it is given up
constexpr std::size_t ifConditions = 200;
constexpr std::size_t ifResources = 16;  // each is looked up
constexpr std::size_t xmlBytes = 128 * 1024;
constexpr std::size_t xmlDepth = 64;
constexpr std::size_t xmlNodes = 4000;     // elements, attributes and pieces of text together
constexpr std::size_t xmlNameBytes = 512;  // of a name, and of a namespace
constexpr std::size_t xmlParserBytes = 4 * 1024 * 1024;
constexpr std::size_t xmlAtOnce = 2;                      // documents; others wait
constexpr std::size_t propertiesAsked = 200;              // of each resource in one PROPFIND,
constexpr std::size_t propertyNameBytes = 16 * 1024;      // their names and namespaces together, as every entry may repeat the names
constexpr std::uint64_t answerBytes = 128 * 1024 * 1024;  // of one PROPFIND

// Passwords.
constexpr std::size_t freeGuesses = 5;                // wrong ones, without the following pause
constexpr std::chrono::milliseconds guessPause{100};  // between two new connections, after more of them
constexpr std::chrono::seconds guessMemory{60};       // until so long after the last wrong one

// What is kept for clients.
constexpr std::size_t locks = 1000;
constexpr std::size_t locksOfOneFile = 16;  // including those of folders above that apply to it
constexpr std::size_t lockOwnerBytes = 1024;
constexpr std::size_t lockBytes = 8 * 1024 * 1024;  // of all owners and paths together
constexpr std::size_t propertiesOfOneFile = 200;
constexpr std::size_t propertyBytesOfOneFile = 64 * 1024;
constexpr std::size_t propertyBytes = 8 * 1024 * 1024;   // of all, including their files' paths
constexpr std::size_t changeBytes = 4 * 1024 * 1024;     // of the paths of changed files, for entity tags
constexpr std::size_t toldPaths = 1000;                  // of which the server told once that they are unencrypted
constexpr std::size_t pageEntries = 12'000;              // of a folder's page in a browser
constexpr std::size_t listingsAtOnce = 2;                // others wait
constexpr std::size_t treesAtOnce = 4;                   // folders that are deleted, copied or moved; others wait
constexpr std::uint64_t diskReserve = 64 * 1024 * 1024;  // that an upload leaves on the temp folder's disk
constexpr std::size_t spoolMemoryBytes = 64 * 1024;      // of an upload; a larger one is in a file

}  // namespace webdav::limits
