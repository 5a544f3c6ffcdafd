// XML that is accepted means the same when it is written out again.
#include "Property.h"
#include "webdav/Http.h"
#include "webdav/Xml.h"

namespace {

bool Same(const webdav::XmlNode& left, const webdav::XmlNode& right) {
    if (left.name != right.name || left.text != right.text || left.attributes != right.attributes ||
        left.children.size() != right.children.size())
        return false;
    for (std::size_t i = 0; i < left.children.size(); ++i)
        if (!Same(left.children[i], right.children[i]))
            return false;
    return true;
}

int Depth(const webdav::XmlNode& node) {
    int depth = 0;
    for (const webdav::XmlNode& child : node.children)
        depth = std::max(depth, Depth(child));
    return depth + 1;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    webdav::XmlNode node;
    try {
        node = webdav::ParseXml({reinterpret_cast<const char*>(data), size});
    } catch (const webdav::HttpError& error) {
        MUST(error.Status() == 400);
        return 0;
    }
    MUST(!node.IsText() && Depth(node) <= 66);
    const webdav::XmlNode again = webdav::ParseXml("<D:w xmlns:D='DAV:'>" + webdav::Serialized(node) + "</D:w>");
    MUST(again.children.size() == 1 && Same(again.children[0], node));
    return 0;
}
