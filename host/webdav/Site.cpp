#include "webdav/Site.h"

#include "core/HostError.h"
#include "core/Text.h"
#include "webdav/Content.h"
#include "webdav/LockMethods.h"
#include "webdav/Methods.h"
#include "webdav/Pages.h"
#include "webdav/Propfind.h"
#include "webdav/Proppatch.h"
#include "webdav/TreeMethods.h"

namespace webdav {

namespace {

struct MethodRow {
    const char* name;
    void (*answer)(Exchange&);
    bool onlyReads = false;
};

constexpr MethodRow kMethods[] = {
    {"OPTIONS", AnswerOptions, true},
    {"GET", AnswerGet, true},
    {"HEAD", AnswerGet, true},
    {"PROPFIND", AnswerPropfind, true},
    {"PUT", AnswerPut},
    {"DELETE", AnswerDelete},
    {"MKCOL", AnswerMkcol},
    {"COPY", AnswerCopy},
    {"MOVE", AnswerMove},
    {"PROPPATCH", AnswerProppatch},
    {"LOCK", AnswerLock},
    {"UNLOCK", AnswerUnlock},
};

void SendError(const Request& request, Response& response, int status, const std::string& text, const std::string& condition,
               Fields fields) {
    if (response.HasBegun())
        throw ConnectionLost(text);  // closes the connection, so that the client notices that the answer is incomplete
    std::string body;
    if (WantsPage(request) && status >= 400)
        return SendErrorPage(response, status, text, std::move(fields));
    if (!condition.empty()) {
        body = R"(<?xml version="1.0" encoding="utf-8"?><D:error xmlns:D="DAV:">)" + condition + "</D:error>";
        fields.emplace_back("Content-Type", "application/xml; charset=utf-8");
    } else if (!text.empty()) {
        body = text + "\n";
        fields.emplace_back("Content-Type", "text/plain; charset=utf-8");
    }
    response.Send(status, fields, body);
}

// Internal failures are also reported to the person who runs the server.
void LogFailure(const Request& request, const char* text) { PrintError("quelvol: " + request.method + " failed: " + text + "\n"); }

}  // namespace

void Site::Answer(const Request& request, RequestBody& body, Response& response) {
    try {
        Dispatch(request, body, response);
    } catch (const ConnectionLost&) {
        throw;
    } catch (const HttpError& error) {
        SendError(request, response, error.Status(), error.what(), error.Condition(), error.ExtraFields());
    } catch (const StatusError& error) {
        const int status = HttpStatus(error.Status());
        if (status >= 500)
            LogFailure(request, error.what());
        SendError(request, response, status, error.what(), {}, {});
    } catch (const std::exception& error) {
        LogFailure(request, error.what());
        SendError(request, response, 500, error.what(), {}, {});
    }
}

void Site::Dispatch(const Request& request, RequestBody& body, Response& response) {
    try {
        CheckAccess(m_rules, m_guesses, request);
    } catch (...) {
        response.CloseAfterwards();  // a refused client must not keep a connection
        throw;
    }
    response.LetIn();
    if (SendPageFile(request, response))
        return;
    for (const MethodRow& row : kMethods) {
        if (request.method != row.name)
            continue;
        // A '?' may be an unescaped part of a name, which would then be another file.
        if (!row.onlyReads && request.target.find('?') != std::string::npos)
            throw HttpError(400, "the path of a change cannot have a query; a name cannot contain '?'");
        std::string authority;
        const bool isWhole = request.target == "*" && request.method == "OPTIONS";
        const VolumePath path = isWhole ? VolumePath() : ParseTarget(request.target, &authority);
        if (!authority.empty() && !EqualToken(authority, request.Field("Host").value_or("")))
            throw HttpError(400, "the request is for more than one host");
        const std::uint64_t changes = m_state.claims.Changes();
        Exchange exchange{m_state, request, body, response, changes, Locate(m_state.volume, path), {}, {}};
        if (const auto field = request.Field("If")) {
            exchange.ifHeader = ParseIf(*field);
            exchange.tokens = SubmittedTokens(exchange.ifHeader);
        }
        return row.answer(exchange);
    }
    throw HttpError(501, "this server does not know the method");
}

}  // namespace webdav
