#include "host/media_types.h"

#include "host/ascii.h"

namespace qiv::host {
namespace {

struct MediaType {
  std::string_view extension;
  std::string_view type;
};

// From the IANA registry of media types; texts of the web carry their charset.
constexpr MediaType kTypes[] = {
    {"html", "text/html; charset=utf-8"},
    {"htm", "text/html; charset=utf-8"},
    {"css", "text/css; charset=utf-8"},
    {"js", "text/javascript; charset=utf-8"},
    {"mjs", "text/javascript; charset=utf-8"},
    {"json", "application/json"},
    {"map", "application/json"},
    {"webmanifest", "application/manifest+json"},
    {"xml", "application/xml"},
    {"xsl", "application/xml"},
    {"rss", "application/rss+xml"},
    {"atom", "application/atom+xml"},
    {"txt", "text/plain; charset=utf-8"},
    {"log", "text/plain; charset=utf-8"},
    {"md", "text/markdown; charset=utf-8"},
    {"csv", "text/csv; charset=utf-8"},
    {"ics", "text/calendar; charset=utf-8"},
    {"vcf", "text/vcard; charset=utf-8"},
    {"png", "image/png"},
    {"jpg", "image/jpeg"},
    {"jpeg", "image/jpeg"},
    {"gif", "image/gif"},
    {"webp", "image/webp"},
    {"avif", "image/avif"},
    {"svg", "image/svg+xml"},
    {"ico", "image/vnd.microsoft.icon"},
    {"bmp", "image/bmp"},
    {"tif", "image/tiff"},
    {"tiff", "image/tiff"},
    {"heic", "image/heic"},
    {"woff", "font/woff"},
    {"woff2", "font/woff2"},
    {"ttf", "font/ttf"},
    {"otf", "font/otf"},
    {"eot", "application/vnd.ms-fontobject"},
    {"mp3", "audio/mpeg"},
    {"m4a", "audio/mp4"},
    {"aac", "audio/aac"},
    {"ogg", "audio/ogg"},
    {"oga", "audio/ogg"},
    {"opus", "audio/ogg"},
    {"wav", "audio/wav"},
    {"flac", "audio/flac"},
    {"weba", "audio/webm"},
    {"mp4", "video/mp4"},
    {"m4v", "video/mp4"},
    {"webm", "video/webm"},
    {"ogv", "video/ogg"},
    {"mov", "video/quicktime"},
    {"avi", "video/x-msvideo"},
    {"mpeg", "video/mpeg"},
    {"mpg", "video/mpeg"},
    {"ts", "video/mp2t"},
    {"m3u8", "application/vnd.apple.mpegurl"},
    {"pdf", "application/pdf"},
    {"rtf", "application/rtf"},
    {"doc", "application/msword"},
    {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    {"xls", "application/vnd.ms-excel"},
    {"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    {"ppt", "application/vnd.ms-powerpoint"},
    {"pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation"},
    {"odt", "application/vnd.oasis.opendocument.text"},
    {"ods", "application/vnd.oasis.opendocument.spreadsheet"},
    {"odp", "application/vnd.oasis.opendocument.presentation"},
    {"epub", "application/epub+zip"},
    {"zip", "application/zip"},
    {"gz", "application/gzip"},
    {"tgz", "application/gzip"},
    {"bz2", "application/x-bzip2"},
    {"xz", "application/x-xz"},
    {"zst", "application/zstd"},
    {"tar", "application/x-tar"},
    {"7z", "application/x-7z-compressed"},
    {"rar", "application/vnd.rar"},
    {"jar", "application/java-archive"},
    {"wasm", "application/wasm"},
    {"swf", "application/x-shockwave-flash"},
    {"apk", "application/vnd.android.package-archive"},
};

constexpr std::string_view kScripts[] = {"asp", "aspx", "asa",  "ashx", "asmx", "ascx", "asax",   "cer",   "cdx",
                                         "cs",  "vb",   "php",  "php3", "php4", "php5", "php7",   "phtml", "phar",
                                         "jsp", "jspx", "jspf", "cgi",  "pl",   "cfm",  "config", "inc",   "shtml"};

}  // namespace

std::string_view MediaTypeOf(std::string_view extension) {
  for (const MediaType& type : kTypes) {
    if (EqualsIgnoreCase(type.extension, extension)) return type.type;
  }
  return "application/octet-stream";
}

bool IsServerScript(std::string_view extension) {
  for (const std::string_view script : kScripts) {
    if (EqualsIgnoreCase(script, extension)) return true;
  }
  return false;
}

}  // namespace qiv::host
