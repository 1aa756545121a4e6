#include "lab/serve/Root.h"

#include "lab/material/Builtin.h"
#include "lab/material/Noise.h"
#include "lab/material/readers/Files.h"
#include "lab/material/readers/WfdbHeader.h"
#include "lab/material/Recognition.h"
#include "lab/serve/HttpFailure.h"

#include <filesystem>
#include <system_error>

namespace lab::serve {
namespace {

namespace fs = std::filesystem;

constexpr int kForbidden = 403;
constexpr int kUnprocessable = 422;
constexpr int kDeepest = 4; // nesting of segments within segments

// Links resolved as far as the path exists; empty when they cannot be, with the reason.
std::string Canonical(const std::string& path, std::error_code& error) {
    const fs::path canonical = fs::weakly_canonical(path, error);
    return error ? std::string() : canonical.lexically_normal().string();
}

std::string Canonical(const std::string& path) {
    std::error_code ignored;
    return Canonical(path, ignored);
}

} // namespace

Root::Root(const std::string& folder)
    : m_path(Canonical(folder)), m_given(fs::absolute(folder).string()) {
    std::error_code error;
    if (!fs::is_directory(m_path, error)) {
        Fail(kUsage, "--root " + folder, "is not a folder.");
    }
    for (std::string* path : {&m_path, &m_given}) {
        while (path->size() > 1 && path->back() == '/') {
            path->pop_back();
        }
    }
}

std::string Root::FromRealRoot(const std::string& path) const {
    if (path == m_given) {
        return m_path;
    }
    const bool isBelow = path.rfind(m_given + "/", 0) == 0;
    return isBelow ? (m_path == "/" ? "" : m_path) + path.substr(m_given.size()) : path;
}

bool Root::Holds(const std::string& path) const {
    const std::string canonical = Canonical(path);
    return canonical == m_path || canonical == m_path + "/" ||
           canonical.rfind(m_path == "/" ? m_path : m_path + "/", 0) == 0;
}

std::string Root::Resolve(const std::string& name) const {
    if (name.find('\0') != std::string::npos) {
        Refuse(kForbidden, Printable(name), "is not a path.");
    }
    std::string path =
        !name.empty() && name.front() == '/' ? name : m_path + (name.empty() ? "" : "/" + name);
    RequireInside(path, name);
    return FromRealRoot(path);
}

void Root::RequireInside(const std::string& path, const std::string& namedBy) const {
    std::error_code error;
    Canonical(path, error);
    if (error) {
        Refuse(kUnprocessable, Hidden(namedBy), "cannot be followed: " + error.message() + ".");
    }
    if (!Holds(path)) {
        Refuse(kForbidden, Hidden(namedBy), "lies outside the folder that is served.",
               "--root sets that folder.");
    }
}

std::string Root::NameOf(const std::string& path) const {
    const std::string prefix = m_path == "/" ? m_path : m_path + "/";
    return path.rfind(prefix, 0) == 0 ? path.substr(prefix.size()) : "";
}

std::string Root::Hidden(std::string text) const {
    const std::string prefix = m_path + "/";
    for (std::size_t at = text.find(prefix); m_path != "/" && at != std::string::npos;
         at = text.find(prefix, at)) {
        text.erase(at, prefix.size());
    }
    return text;
}

void Root::ResolveNames(MaterialRequest& request) const {
    if (!IsWithoutFile(request.name)) {
        request.name = Resolve(request.name);
    }
    if (!request.noise.empty()) {
        request.noise = Resolve(request.noise);
    }
    if (!request.builtinNoise.empty() && !IsBuiltinNoise(request.builtinNoise)) {
        const std::string path = Resolve(request.builtinNoise);
        std::error_code error;
        // A name that is not a file either is left for the database to refuse, because it can
        // suggest similar names.
        if (fs::exists(path, error) || fs::exists(path + ".hea", error)) {
            request.builtinNoise = path;
        }
    }
}

void Root::RequireSignalsInside(const std::string& header) const {
    RequireSegmentInside(header, kDeepest);
}

void Root::RequireSegmentInside(const std::string& header, int depth) const {
    RequireInside(header, header);
    if (depth == 0) {
        return;
    }
    const WfdbHeader record = ParseWfdbHeader(header);
    const std::string folder = DirectoryOf(header);
    for (const WfdbSignalLine& signal : record.signals) {
        RequireInside(signal.file.rfind('/', 0) == 0 ? signal.file : folder + signal.file, header);
    }
    for (const WfdbSegment& segment : record.segments) {
        const std::string path = folder + segment.name + ".hea";
        std::error_code error;
        if (segment.name != "~") {
            RequireInside(path, header);
            if (fs::exists(path, error)) {
                RequireSegmentInside(path, depth - 1);
            }
        }
    }
}

void Root::RequireFilesInside(const Record& record) const {
    for (const std::string& file : record.files) {
        RequireInside(file, record.source);
    }
}

bool IsWithoutFile(const std::string& name) {
    return IsBuiltin(name) || (name.find('/') == std::string::npos &&
                               Recognise(name, "wfdb") == MaterialKind::kWaveform);
}

} // namespace lab::serve
