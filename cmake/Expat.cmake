# expat::static: the XML parser, with namespaces and its protection against entity expansion.
include_guard(GLOBAL)
include(ThirdParty)

add_third_party(expat expat::static
    SUBFOLDER expat BUILD expat ARCHIVE libexpat.a INCLUDE expat/lib
    OPTIONS -DEXPAT_SHARED_LIBS=OFF -DEXPAT_BUILD_TOOLS=OFF -DEXPAT_BUILD_TESTS=OFF -DEXPAT_BUILD_EXAMPLES=OFF
    -DEXPAT_BUILD_DOCS=OFF
    # Its configuration header would define XML_DTD without a value, which a security fix of Debian's needs.
    -DEXPAT_DTD=OFF -DCMAKE_C_FLAGS=-DXML_DTD=1)
set_target_properties(expat::static PROPERTIES INTERFACE_COMPILE_DEFINITIONS "XML_STATIC;XML_DTD=1")
