#include "companion/conformance/Report.h"

#include <exception>
#include <string_view>

#include "quelcrypt/QuelcryptExceptions.h"

namespace conformance {

std::string SeenInstead(const std::function<void()>& check) {
    try {
        check();
        return {};
    } catch (const Unmet& unmet) {
        return unmet.seen;
    } catch (const CQuelcryptErrorException& error) {
        std::string text;
        for (const wchar_t unit : std::wstring_view(error.GetDescription()))
            text += unit < 0x80 ? static_cast<char>(unit) : '?';
        return "it threw \"" + text + "\"";
    } catch (const CQuelcryptException&) {
        return "it threw an exception without a description";
    } catch (const std::exception& error) {
        return std::string("it threw an exception outside of the CQuelcryptException family: ") + error.what();
    } catch (...) {
        return "it threw an exception outside of the CQuelcryptException family";
    }
}

void Report::Require(const std::string& requirement, const std::function<void()>& check) {
    m_requirement = requirement;
    Print(SeenInstead(check));
}

void Report::Print(const std::string& seen) {
    m_out << (seen.empty() ? "ok      " : "FAILED  ") << m_requirement << '\n';
    if (!seen.empty())
        m_out << "        " << seen << '\n';
    m_out.flush();
    m_unmet += !seen.empty();
}

}  // namespace conformance
