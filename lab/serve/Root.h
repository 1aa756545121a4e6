#pragma once

#include "lab/material/MaterialRequest.h"
#include "lab/material/Record.h"

#include <string>

namespace lab::serve {

// The folder of the material that clients may name. Links are resolved before a path is checked.
class Root {
  public:
    // Fails when it is not a folder. It may be named by a link.
    explicit Root(const std::string& folder);

    const std::string& Path() const { return m_path; }

    // The folder as given, made absolute.
    const std::string& GivenPath() const { return m_given; }

    // The path of something that is named relative to the root or by a path inside it. Refuses
    // (403) anything outside.
    std::string Resolve(const std::string& name) const;

    bool Holds(const std::string& path) const;

    // The path relative to the root, as clients name it; the root itself is empty.
    std::string NameOf(const std::string& path) const;

    // The text of a failure, without the root's path on this machine.
    std::string Hidden(std::string text) const;

    // Replaces the names of files by paths.
    void ResolveNames(MaterialRequest& request) const;

    // Refuses (403) a WFDB record whose header, or whose segments' headers, name signal files
    // outside.
    void RequireSignalsInside(const std::string& header) const;

    // The same for every file that a record was read from.
    void RequireFilesInside(const Record& record) const;

  private:
    void RequireInside(const std::string& path, const std::string& namedBy) const;
    void RequireSegmentInside(const std::string& header, int depth) const;

    // The path with the real location of the root in place of the given one at its beginning.
    std::string FromRealRoot(const std::string& path) const;

    std::string m_path; // without links
    std::string m_given;
};

// Whether it is a waveform's or a built-in record's name rather than a file's.
bool IsWithoutFile(const std::string& name);

} // namespace lab::serve
