# libarchive::static: ZIP with AES-256 by the platform's own cryptography, and deflate; nothing else is switched on.
include_guard(GLOBAL)
include(ThirdParty)

set(libarchive_off)
foreach(feature MBEDTLS NETTLE OPENSSL LIBB2 LZ4 LZO LZMA ZSTD BZip2 LIBXML2 EXPAT PCREPOSIX PCRE2POSIX LIBGCC
        TAR CPIO CAT XATTR ACL ICONV TEST COVERAGE WERROR)
    list(APPEND libarchive_off -DENABLE_${feature}=OFF)
endforeach()

add_third_party(libarchive libarchive::static
    BUILD archive_static ARCHIVE libarchive/libarchive_static.a INCLUDE libarchive
    OPTIONS ${libarchive_off}
    -DENABLE_CNG=ON -DHAVE_BCRYPT_H=1 -DHAVE_WINCRYPT_H=1
    -DENABLE_ZLIB=ON
    -DZLIB_LIBRARY=/usr/x86_64-w64-mingw32/lib/libz.a -DZLIB_INCLUDE_DIR=/usr/x86_64-w64-mingw32/include
    -DPOSIX_REGEX_LIB=NONE
    "-DCMAKE_C_FLAGS=-D_WIN32_WINNT=0x0A00 -DWIN32_LEAN_AND_MEAN -DLIBARCHIVE_STATIC")
set_target_properties(libarchive::static PROPERTIES
    INTERFACE_COMPILE_DEFINITIONS LIBARCHIVE_STATIC
    INTERFACE_LINK_LIBRARIES "z;bcrypt")
