// A configuration is read whole or refused with a place; reading asks nothing else.
#include "Property.h"
#include "Settings.h"
#include "quelcrypt/QuelcryptExceptions.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const companion::Settings settings = companion::ParseSettings({reinterpret_cast<const char*>(data), size}, L"C:\\base");
        for (const companion::ConfiguredFolder& folder : settings.folders)
            MUST(!folder.path.empty() && settings.BoxOf(folder.path));
        MUST(settings.defaultKey.empty() || settings.passwords.contains(settings.defaultKey));
    } catch (const companion::SettingsError& error) {
        MUST(error.what()[0] == '(');
    } catch (const CQuelcryptErrorException&) {
    }
    return 0;
}
