#include "lab/plan/MaterialCheck.h"
#include "lab/material/LoadedSamples.h"
#include "lab/material/LoadRecord.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>

namespace lab {
namespace {

constexpr int kStripSeconds = 6;
constexpr double kStripRate = 500.0; // points per second at most

// Identifies what has to be loaded for a step: its material with all options but start and
// duration.
std::string LoadKey(const PlannedStep& step) {
    std::string key = step.material;
    for (const auto& [name, value] : step.options) {
        const bool isOfPlay = name == "seconds" || name == "loop" ||
                              (name == "start" && step.play.material.start == 0.0);
        if (!isOfPlay) {
            key += "\n" + name + "=" + value.text;
            for (const TomlEntry& entry : value.entries) { // of a table
                key += "\n " + entry.key + "=" + entry.value.text;
            }
        }
    }
    return key;
}

std::string StartKey(const PlannedStep& step) {
    return LoadKey(step) + Format("\n@%.9g", step.play.start);
}

// ---- Samples ------------------------------------------------------------------------------------

// Lead II, which rhythm strips show, or the first lead supplied.
std::size_t StripLead(const Record& record) {
    constexpr std::size_t kLeadII = 1;
    const auto first = std::find(record.supplied.begin(), record.supplied.end(), true);
    return record.supplied[kLeadII] || first == record.supplied.end()
               ? kLeadII
               : static_cast<std::size_t>(first - record.supplied.begin());
}

// Every n-th sample at rates too high to be seen on paper.
Strip TakeStrip(const PlannedStep& step, const Record& record) {
    const std::size_t lead = StripLead(record);
    const auto rate = static_cast<double>(record.rate);
    const double thinning = std::max(1.0, std::ceil(rate / kStripRate));
    Strip strip{kLeadNames[lead], step.play.start, rate / thinning, {}};
    const auto start = static_cast<int>(step.play.start - record.skippedSeconds);
    double number = 0.0;
    ForEachSample(start, kStripSeconds, [&](const double* leads) {
        if (std::fmod(number++, thinning) == 0.0) {
            strip.microvolts.push_back(static_cast<int>(std::lround(leads[lead] * 1000.0)));
        }
    });
    return strip;
}

// ---- Everything that is wrong -------------------------------------------------------------------

class Checker {
  public:
    Checker(const Plan& plan, const Interrupt& interrupt) : m_plan(plan), m_interrupt(interrupt) {}

    Checks Check(const std::vector<bool>& isSelected) {
        std::map<std::string, std::vector<const PlannedStep*>> groups;
        std::vector<std::string> order; // as the plan names them
        for (std::size_t i = 0; i < m_plan.steps.size(); ++i) {
            const PlannedStep& step = m_plan.steps[i];
            if (isSelected[i] && step.kind == StepKind::kScore) {
                CheckReference(step);
            }
            if (!isSelected[i] || step.kind != StepKind::kMaterial) {
                m_checks.seconds += isSelected[i] ? step.wait + step.pause : 0.0;
                continue;
            }
            auto& group = groups[LoadKey(step)];
            if (group.empty()) {
                order.push_back(LoadKey(step));
            }
            group.push_back(&step);
        }
        for (const std::string& key : order) {
            CheckGroup(groups[key]);
        }
        RequireNone(m_plan.path, std::move(m_complaints));
        if (m_unusable > 0) {
            Fail(kMaterial, m_plan.path,
                 m_unusable == 1 ? "has a step that cannot be played."
                                 : Format("has %d steps that cannot be played.", m_unusable),
                 "Nothing was played.");
        }
        return std::move(m_checks);
    }

  private:
    // Steps that play one material from one or more starts.
    void CheckGroup(const std::vector<const PlannedStep*>& steps) {
        if (m_interrupt.Signal() != 0) {
            throw Failure(static_cast<ExitStatus>(kInterrupted + m_interrupt.Signal()), "the check",
                          "was interrupted.");
        }
        const PlannedStep& first = *steps.front();
        CheckedMaterial material;
        try {
            const Record record = Load(first, material);
            for (const PlannedStep* step : steps) {
                CheckStep(*step, record, material);
            }
        } catch (const Failure& failure) {
            TakeFailure(first, failure);
        }
    }

    // Only the reference's files: the test's are created during the run.
    void CheckReference(const PlannedStep& step) {
        try {
            std::vector<CheckedFile>& files = m_checks.references[step.name];
            for (const std::string& path : ReferenceFiles(step.score, m_plan.folder)) {
                files.push_back(DigestOf(path));
            }
            if (files.empty()) {
                Fail(kMaterial, step.score.request.reference,
                     "holds no file with the suffix " + step.score.request.referenceSuffix + ".",
                     "reference-suffix names another suffix.");
            }
        } catch (const Failure& failure) {
            TakeFailure(step, failure);
        }
    }

    Record Load(const PlannedStep& step, CheckedMaterial& material) {
        Record record = LoadRecord(step.play.material);
        RequirePlayable(record);
        RequireWhole(record);
        material.source = record.origin;
        material.record = record.name;
        material.noise = record.noise;
        material.rate = static_cast<double>(record.rate);
        material.seconds = record.skippedSeconds + record.Seconds();
        material.clipped = ClippedLeads(record);
        material.warnings = record.warnings;
        std::set<std::string> known;
        for (const std::string& path : record.files) {
            if (known.insert(path).second) {
                material.files.push_back(DigestOf(path));
            }
        }
        return record;
    }

    void CheckStep(const PlannedStep& step, const Record& record, const CheckedMaterial& material) {
        try {
            RequireDigests(step, material);
            RequireStretch(step, record);
        } catch (const Failure& failure) {
            return TakeFailure(step, failure);
        }
        const auto [known, isNew] = m_starts.emplace(StartKey(step), m_checks.materials.size());
        if (isNew) {
            m_checks.materials.push_back(material);
            m_checks.materials.back().strip = TakeStrip(step, record);
        }
        m_checks.ofStep[step.name] = known->second;
        m_checks.seconds += SecondsOf(step, record) + step.pause;
    }

    static double SecondsOf(const PlannedStep& step, const Record& record) {
        const double left = record.skippedSeconds + record.Seconds() - step.play.start;
        const double wanted = step.play.seconds;
        return wanted == 0.0 ? left : step.play.loop ? wanted : std::min(wanted, left);
    }

    void RequireStretch(const PlannedStep& step, const Record& record) {
        RequireStart(step.play, record);
        if (record.isEndless && step.play.seconds == 0.0) {
            Fail(kUsage, "seconds", "is missing: " + record.name + " has no end.");
        }
    }

    // ---- Files ----------------------------------------------------------------------------------

    std::string NameInPlan(const std::string& path) const {
        const std::string prefix = m_plan.folder + "/";
        return path.rfind(prefix, 0) == 0 ? path.substr(prefix.size()) : path;
    }

    CheckedFile DigestOf(const std::string& path) {
        const auto known = m_files.find(path);
        if (known != m_files.end()) {
            return known->second;
        }
        CheckedFile file{{}, NameInPlan(path), false, StateOf(path)};
        file.digest = DigestFile(path);
        const std::filesystem::path parts(path);
        const std::string folder = parts.has_parent_path() ? parts.parent_path().string() : ".";
        auto published = m_published.find(folder);
        if (published == m_published.end()) {
            published = m_published.emplace(folder, PublishedDigests(folder)).first;
        }
        const auto digest = published->second.find(parts.filename().string());
        file.isPublished = digest != published->second.end();
        if (file.isPublished && digest->second != file.digest.sha256) {
            Fail(
                kMaterial, path, "does not match the SHA256SUMS.txt beside it.",
                "Fetch the file again; one that was changed on purpose needs a folder of its own.");
        }
        return m_files[path] = file;
    }

    static void RequireDigests(const PlannedStep& step, const CheckedMaterial& material) {
        for (const auto& [name, digest] : step.sha256) {
            const auto file = std::find_if(material.files.begin(), material.files.end(),
                                           [&, &n = name](const auto& f) {
                                               return f.name == n || f.digest.path == n ||
                                                      std::filesystem::path(f.name).filename() == n;
                                           });
            if (file == material.files.end()) {
                Fail(kUsage, "sha256", "names " + Printable(name) + ", which takes no part.");
            }
            if (file->digest.sha256 != digest) {
                Fail(kMaterial, file->digest.path, "does not match the plan's sha256.",
                     "It is " + file->digest.sha256 + ".");
            }
        }
    }

    // ---- Failures -------------------------------------------------------------------------------

    // An option that does not fit is a fault of the plan and has a position there.
    void TakeFailure(const PlannedStep& step, const Failure& failure) {
        if (failure.Status() != kUsage) {
            std::fprintf(stderr, "step %s: %s\n", step.name.c_str(), failure.what());
            ++m_unusable;
            return;
        }
        std::string field = failure.Where(); // "--start 9"
        field.erase(0, field.find_first_not_of('-'));
        const auto blank = std::min(field.find(' '), field.size());
        std::string wrong = field.substr(blank) + " " + failure.Problem();
        wrong = wrong.substr(1, wrong.find_last_not_of('.'));
        field.erase(blank);
        const auto option =
            std::find_if(step.options.begin(), step.options.end(),
                         [&](const auto& candidate) { return candidate.first == field; });
        m_complaints.push_back({option == step.options.end() ? step.place : option->second.place,
                                field, wrong, "it has to fit the material of step " + step.name});
    }

    const Plan& m_plan;
    const Interrupt& m_interrupt;
    Checks m_checks;
    std::map<std::string, std::size_t> m_starts;
    std::map<std::string, CheckedFile> m_files;
    std::map<std::string, std::map<std::string, std::string>> m_published;
    std::vector<Complaint> m_complaints;
    int m_unusable = 0;
};

} // namespace

Checks CheckMaterial(const Plan& plan, const std::vector<bool>& isSelected,
                     const Interrupt& interrupt) {
    return Checker(plan, interrupt).Check(isSelected);
}

void RequireUnchanged(const std::vector<CheckedFile>& files) {
    for (const CheckedFile& file : files) {
        if (StateOf(file.digest.path) != file.state &&
            DigestFile(file.digest.path).sha256 != file.digest.sha256) {
            Fail(kMaterial, file.digest.path, "has changed since the run began.",
                 "Put the file back as it was and continue with --resume.");
        }
    }
}

} // namespace lab
