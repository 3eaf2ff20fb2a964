#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/ClipFinder.h"
#include "apps/kestrel/clips/ProjectSpeakers.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Confirm.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

#include <memory>

namespace kestrel {

namespace {

struct SpeakersOptions {
    std::string project;
    std::string speaker;
    std::string other; ///< New name, or the speaker to keep.
    std::string clip;
    std::string label;
    int segment = -1; ///< -1: none is named.
    bool yes = false;
    bool json = false;
};

/// A command on the speakers of one project.
class SpeakerCommand {
public:
    explicit SpeakerCommand(const SpeakersOptions& options)
        : mOptions(options), mHome(Home::fromEnvironment()), mStore(openStore(mHome)),
          mProject(requireProject(mStore, options.project)), mSpeakers(mStore, mProject) {}

    int list() {
        Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
        std::string text;
        for (const ListedSpeaker& speaker : mSpeakers.list()) {
            auto object = jsonObject();
            object->set("speaker", speaker.name);
            object->set("speakerId", speaker.id);
            object->set("assigned", speaker.isAssigned);
            list->add(object);
            text += fmt::format("{}  {}{}\n", speaker.id, speaker.name,
                                speaker.isAssigned ? "" : "  (not assigned)");
        }
        if (mOptions.json) {
            auto document = jsonObject();
            document->set("project", mProject.projectName);
            document->set("speakers", list);
            printResult(document);
        } else {
            printResult(text);
            if (text.empty()) tell(fmt::format("project \"{}\" has no named speakers", mProject.projectName));
        }
        return ExitFine;
    }

    int create() {
        const KsNNSpeakerKV speaker = mSpeakers.create(mOptions.speaker);
        return done(speaker, fmt::format("{} created", speaker.speakerName));
    }

    int assign() {
        if (mOptions.label.empty() == (mOptions.segment < 0))
            throw UsageError("say which segments: --label LABEL, or --segment NUMBER");
        const KsNNSpeakerKV speaker = mSpeakers.find(mOptions.speaker);
        const Clip clip = findClip(mStore, mHome, mOptions.clip, mOptions.project);
        std::size_t segments = 1;
        if (mOptions.segment >= 0)
            mSpeakers.assignSegment(clip, speaker, mOptions.segment);
        else
            segments = mSpeakers.assignLabel(clip, speaker, mOptions.label);
        return done(speaker, fmt::format("{} speaks {} segment{} of {}", speaker.speakerName, segments,
                                         segments == 1 ? "" : "s", clip.name));
    }

    int rename() {
        KsNNSpeakerKV speaker = mSpeakers.find(mOptions.speaker);
        mSpeakers.rename(speaker, mOptions.other);
        speaker.speakerName = mOptions.other;
        return done(speaker, fmt::format("{} is now {}", mOptions.speaker, speaker.speakerName));
    }

    int merge() {
        const KsNNSpeakerKV merged = mSpeakers.find(mOptions.speaker);
        const KsNNSpeakerKV kept = mSpeakers.find(mOptions.other);
        if (merged.speakerGuid == kept.speakerGuid)
            throw UsageError(
                fmt::format("\"{}\" and \"{}\" are one speaker", mOptions.speaker, mOptions.other));
        confirm(fmt::format("Give all segments of {} to {}, and remove {} from project \"{}\"?",
                            merged.speakerName, kept.speakerName, merged.speakerName, mProject.projectName),
                mOptions.yes);
        mSpeakers.merge(merged, kept);
        return done(kept, fmt::format("{} is now {}", merged.speakerName, kept.speakerName));
    }

    int clear() {
        if (mOptions.segment >= 0 && mOptions.clip.empty()) throw UsageError("--segment needs --clip CLIP");
        const KsNNSpeakerKV speaker = mSpeakers.find(mOptions.speaker);
        const std::string where =
            mOptions.clip.empty()
                ? fmt::format("project \"{}\"", mProject.projectName)
                : (mOptions.segment < 0 ? "" : fmt::format("segment {} of ", mOptions.segment)) +
                      mOptions.clip;
        confirm(fmt::format("Take {} from {}? The segments keep their labels.", speaker.speakerName, where),
                mOptions.yes);
        if (mOptions.clip.empty()) {
            mSpeakers.clear(speaker);
        } else {
            const Clip clip = findClip(mStore, mHome, mOptions.clip, mOptions.project);
            if (mOptions.segment < 0)
                mSpeakers.clearClip(clip, speaker);
            else
                mSpeakers.clearSegment(clip, speaker, mOptions.segment);
        }
        return done(speaker, fmt::format("{} cleared from {}", speaker.speakerName, where));
    }

    int remove() {
        const KsNNSpeakerKV speaker = mSpeakers.find(mOptions.speaker);
        confirm(fmt::format("Delete {} from project \"{}\"?", speaker.speakerName, mProject.projectName),
                mOptions.yes);
        mSpeakers.remove(speaker);
        return done(speaker, fmt::format("{} deleted", speaker.speakerName));
    }

private:
    int done(const KsNNSpeakerKV& speaker, const std::string& message) const {
        if (mOptions.json) {
            auto document = jsonObject();
            document->set("project", mProject.projectName);
            document->set("speaker", speaker.speakerName);
            document->set("speakerId", speaker.speakerGuid);
            printResult(document);
        }
        tell(message);
        return ExitFine;
    }

    const SpeakersOptions& mOptions;
    Home mHome;
    KsNNDatabase mStore;
    KsNNProject mProject;
    ProjectSpeakers mSpeakers;
};

using Action = int (SpeakerCommand::*)();

Run setUp(CLI::App& app) {
    auto options = std::make_shared<SpeakersOptions>();
    auto action = std::make_shared<Action>(nullptr);
    app.require_subcommand(1);
    const auto add = [&](const char* name, const char* help, Action chosen) {
        CLI::App* sub = app.add_subcommand(name, help);
        addProjectOption(*sub, options->project)->required();
        addJsonFlag(*sub, options->json);
        sub->callback([action, chosen] { *action = chosen; });
        return sub;
    };
    const auto addSpeaker = [&](CLI::App* sub) {
        sub->add_option("SPEAKER", options->speaker, "Name or identifier of the speaker")
            ->required()
            ->check(requireName);
        return sub;
    };
    add("list", "List the named speakers of a project", &SpeakerCommand::list);
    addSpeaker(add("create", "Add a named speaker to a project", &SpeakerCommand::create));

    CLI::App* assign =
        addSpeaker(add("assign", "Say who speaks segments of a clip", &SpeakerCommand::assign));
    assign->add_option("CLIP", options->clip, kClipHelp)->required();
    assign->add_option("--label", options->label, "Assign all segments of the clip that have this label");
    assign->add_option("--segment", options->segment, "Assign this segment alone")
        ->check(CLI::NonNegativeNumber);

    CLI::App* rename =
        addSpeaker(add("rename", "Rename a speaker, for all its projects", &SpeakerCommand::rename));
    rename->add_option("NAME", options->other, "New name")->required()->check(requireName);

    CLI::App* merge = addSpeaker(add("merge", "Make two speakers one", &SpeakerCommand::merge));
    merge->add_option("KEEP", options->other, "Speaker that takes over the segments")->required();
    addYesFlag(*merge, options->yes);

    CLI::App* clear =
        addSpeaker(add("clear", "Take a speaker from segments; labels stay", &SpeakerCommand::clear));
    clear->add_option("--clip", options->clip, "Only from this clip");
    clear->add_option("--segment", options->segment, "Only from this segment of the clip")
        ->check(CLI::NonNegativeNumber);
    addYesFlag(*clear, options->yes);

    CLI::App* remove =
        addSpeaker(add("delete", "Delete a speaker that is not assigned", &SpeakerCommand::remove));
    addYesFlag(*remove, options->yes);

    app.footer("`kestrel speakers COMMAND --help` says more.\n\nExamples:\n"
               "  kestrel speakers create Anna --project Rivers\n"
               "  kestrel speakers assign Anna interview.mov --label 1 --project Rivers\n"
               "  kestrel speakers merge \"Ana\" Anna --project Rivers\n"
               "  kestrel speakers list --project Rivers --json");
    return [options, action] {
        SpeakerCommand command(*options);
        return (command.**action)();
    };
}

const CommandRegistration kRegistration({CommandGroup::Catalogue, "speakers",
                                         "List, create, assign, rename, merge, clear and delete speakers",
                                         setUp});

} // namespace

} // namespace kestrel
