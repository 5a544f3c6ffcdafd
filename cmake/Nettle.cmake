# nettle::static: AES, HMAC-SHA1 and PBKDF2 that choose the processor's own instructions at run time.
include_guard(GLOBAL)
include(ThirdParty)

# Its headers are meant to be included as <nettle/...>, and some have names of the system's own, so the folder above is named.
# It wants a compiler for the machine that builds, though none of what is used here needs one.
add_third_party(nettle nettle::static
    BUILD libnettle.a ARCHIVE libnettle.a INCLUDE ..
    OPTIONS CC_FOR_BUILD=clang-14 --enable-fat --disable-public-key --disable-openssl --disable-documentation)
