// File-system path strings: the path operations of NSString on UTF-16 text.
//
// Paths are plain strings; nothing here touches the file system. A path component ends at "/";
// trailing slashes are ignored, so "/tmp/dir/" and "/tmp/dir" name the same item. Pure
// functions, safe on any thread. Views returned point into the argument.
#pragma once

#include <string>
#include <string_view>

namespace ferncast {

// The last component: "/tmp/scratch.tiff" -> "scratch.tiff", "/tmp/" -> "tmp", "/" -> "/",
// "" -> "".
std::u16string_view lastPathComponent(std::u16string_view path);

// The extension of the last component, without the dot: "scratch.tiff" -> "tiff",
// "scratch..tiff" -> "tiff", "scratch" -> "", ".profile" -> "" (a leading dot hides a file, it
// does not start an extension), "scratch." -> "".
std::u16string_view pathExtension(std::u16string_view path);

// The path without its last component's extension and dot: "/tmp/a.tiff" -> "/tmp/a";
// unchanged when there is no extension. Trailing slashes go with the extension.
std::u16string stringByDeletingPathExtension(std::u16string_view path);

// The path and a component joined by exactly one "/": ("/tmp/", "a") -> "/tmp/a",
// ("", "a") -> "a".
std::u16string stringByAppendingPathComponent(std::u16string_view path,
                                              std::u16string_view component);

// The path with "." and the extension appended to its last component ("/tmp/a" + "pdf" ->
// "/tmp/a.pdf"); trailing slashes are dropped first.
std::u16string stringByAppendingPathExtension(std::u16string_view path,
                                              std::u16string_view extension);

}  // namespace ferncast
