# nettle::static: AES, HMAC-SHA1 and PBKDF2, which use the processor's own instructions if it has them.
include_guard(GLOBAL)
include(ThirdParty)

# Its headers are included as <nettle/...>, and some have names of system headers, so the include folder is the one above.
# Its configure script requires a compiler for the build machine, although nothing used here needs one.
add_third_party(nettle nettle::static
    BUILD libnettle.a ARCHIVE libnettle.a INCLUDE ..
    OPTIONS CC_FOR_BUILD=tcc --enable-fat --disable-public-key --disable-openssl --disable-documentation)
