#include "cli/ProviderCommand.h"

#include <charconv>
#include <cmath>
#include <memory>
#include <string>
#include <utility>

#include "cli/ProviderCalls.h"
#include "index/Index.h"
#include "platform/linux/Container.h"
#include "platform/linux/LogSink.h"

namespace tulo::cli {
namespace {

constexpr const char* groupHelp =
    R"(One protocol call of the extension at a time, as JSON: for scripts, for debugging, for tests.

Standard output is JSON Lines: one object for each callback of the extension, in the order in which
they come, then {"progress":{"completed":C,"total":T}} for the calls that have a progress. Standard
error is the log. The exit status is 0 when the call succeeded, 1 when it reported an error to its
caller, 2 for wrong usage.

An ID is an item identifier as the system sees it: NSFileProviderRootContainerItemIdentifier,
"f:" and a folder's ULID, "i:" and a file's ULID, or any other string.)";

// What the command line holds; the options of CLI11 write into it, so it lives as long as they do.
struct Arguments {
  std::string container;
  std::string domain = Index::domainPrefix() + "primary";
  std::string logFormat = "text";
  std::string identifier = platform::NSFileProviderRootContainerItemIdentifier();
  std::string syncAnchor;
  std::string name;
  std::string parent;
  std::string type;
  std::string contents;
  std::string size = "128x128";
  platform::NSFileProviderItemFields fields = 0;
  std::uint64_t cancelAfter = 0;
  bool isFolder = false;
  std::vector<std::string> identifiers;
};

// "WxH", two finite numbers, neither below zero.
std::optional<platform::Size> parsedSize(const std::string& text) {
  const auto number = [](const std::string& part) -> std::optional<double> {
    double value = 0;
    if (!CLI::detail::lexical_cast(part, value) || !std::isfinite(value) || value < 0) {
      return std::nullopt;
    }
    return value;
  };
  const std::size_t separator = text.find('x');
  if (separator == std::string::npos) return std::nullopt;
  const auto width = number(text.substr(0, separator));
  const auto height = number(text.substr(separator + 1));
  if (!width || !height) return std::nullopt;
  return platform::Size{*width, *height};
}

std::string checkSize(const std::string& text) {
  if (parsedSize(text)) return {};
  return "\"" + text + "\" is not a size: WxH expected, as in 128x128";
}

// CLI11 itself takes "-1" for the greatest mask.
std::string checkMask(const std::string& text) {
  platform::NSFileProviderItemFields fields = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, fields);
  if (rest == end && error == std::errc()) return {};
  return "\"" + text + "\" is not a mask of fields: a number of at most 64 bits expected";
}

template <typename Value>
std::optional<Value> given(const CLI::Option* option, const Value& value) {
  return option->count() > 0 ? std::optional<Value>(value) : std::nullopt;
}

std::optional<platform::URL> givenURL(const CLI::Option* option, const std::string& path) {
  return option->count() > 0 ? std::optional<platform::URL>(path) : std::nullopt;
}

// Adds the group's commands one by one; each runs its call on a fresh extension.
class Group {
 public:
  Group(CLI::App& app, int& exitStatus)
      : group_(*app.add_subcommand("provider", groupHelp)),
        arguments_(std::make_shared<Arguments>()),
        exitStatus_(exitStatus) {
    group_.require_subcommand(1, 1);
    container_ = group_.add_option("--container", arguments_->container,
                                   "Shared container of the app group (default: $TULO_CONTAINER, "
                                   "else $XDG_DATA_HOME/tulo, else ~/.local/share/tulo)");
    group_
        .add_option("--domain", arguments_->domain, "Identifier of the provider domain, as it is")
        ->capture_default_str();
    group_.add_option("--log-format", arguments_->logFormat, "Form of the log on standard error")
        ->check(CLI::IsMember({"text", "json"}))
        ->capture_default_str();
  }

  void addAll() {
    addReaders();
    addFetch();
    addCreate();
    addModify();
    addDelete();
    addThumbnails();
  }

 private:
  using Call = std::function<int(ProviderCalls&)>;

  CLI::App* add(const std::string& name, const std::string& help, Call call) {
    CLI::App* command = group_.add_subcommand(name, help);
    command->callback([this_ = *this, call = std::move(call)] { this_.run(call); });
    return command;
  }

  CLI::Option* takesIdentifier(CLI::App* command) {
    return command->add_option("ID", arguments_->identifier, "Item identifier")->required();
  }

  void run(const Call& call) const {
    platform::setLogSink(arguments_->logFormat == "json" ? platform::jsonLogSink()
                                                         : platform::textLogSink());
    if (container_->count() > 0) {
      // An empty path names no directory; the platform would take it for no setting.
      platform::setContainerDirectory(arguments_->container.empty() ? "/dev/null"
                                                                    : arguments_->container);
    }
    JSONLines output;
    ProviderCalls calls(
        std::make_shared<FileProviderExtension>(
            std::make_shared<platform::NSFileProviderDomain>(arguments_->domain, "Tulo Hub")),
        output);
    exitStatus_ = call(calls);
    if (!output.isWhole()) {
      std::fputs("tulo: standard output could not be written\n", stderr);
      exitStatus_ = 1;
    }
  }

  void addReaders() {
    const auto a = arguments_;
    add("info", "The names that the extension works with: domain, account, index, container",
        [](ProviderCalls& calls) { return calls.info(); });
    takesIdentifier(add("item", "One item's metadata",
                        [a](ProviderCalls& calls) { return calls.item(a->identifier); }));
    takesIdentifier(add("enumerate", "What is in a container",
                        [a](ProviderCalls& calls) { return calls.enumerate(a->identifier); }));
    CLI::App* anchor = add("anchor", "The current sync anchor",
                           [a](ProviderCalls& calls) { return calls.anchor(a->identifier); });
    anchor->add_option("ID", a->identifier, "Container (default: the root container)");
    CLI::App* changes =
        add("changes", "What has changed since a sync anchor",
            [a](ProviderCalls& calls) { return calls.changes(a->identifier, a->syncAnchor); });
    takesIdentifier(changes);
    changes->add_option("--anchor", a->syncAnchor, "The anchor, as text")->required();
  }

  void addFetch() {
    takesIdentifier(
        add("fetch", "Download a file's contents",
            [a = arguments_](ProviderCalls& calls) { return calls.fetch(a->identifier); }));
  }

  void addCreate() {
    CLI::App* command = group_.add_subcommand("create", "Create a file or a folder");
    const auto a = arguments_;
    command->add_option("--name", a->name, "Name of the new item")->required();
    const auto* parent =
        command->add_option("--parent", a->parent, "Identifier of the folder (default: the root)");
    auto* folder = command->add_flag("--folder", a->isFolder, "Create a folder");
    const auto* type =
        command->add_option("--type", a->type, "Type identifier of the template (default: none)")
            ->excludes(folder);
    const auto* contents = command->add_option("--contents", a->contents, "File to upload");
    command->callback([this_ = *this, a, parent, type, contents] {
      std::optional<platform::UTType> templateType;
      if (a->isFolder) templateType = platform::UTType::folder();
      if (type->count() > 0) templateType = platform::UTType(a->type);
      const NewItem newItem{
          a->name,
          given(parent, a->parent).value_or(platform::NSFileProviderRootContainerItemIdentifier()),
          templateType, givenURL(contents, a->contents)};
      this_.run([&](ProviderCalls& calls) { return calls.create(newItem); });
    });
  }

  void addModify() {
    CLI::App* command = group_.add_subcommand("modify", "Change an item");
    const auto a = arguments_;
    takesIdentifier(command);
    const auto* fields =
        command
            ->add_option("--fields", a->fields,
                         "Mask of changed fields (default: what is given): 1 contents, 2 name, "
                         "4 parent")
            ->check(checkMask);
    const auto* name = command->add_option("--name", a->name, "New name");
    const auto* parent = command->add_option("--parent", a->parent, "Identifier of the new folder");
    const auto* contents = command->add_option("--contents", a->contents, "File to upload");
    command->callback([this_ = *this, a, fields, name, parent, contents] {
      const Change change{a->identifier, given(fields, a->fields), given(name, a->name),
                          given(parent, a->parent), givenURL(contents, a->contents)};
      this_.run([&](ProviderCalls& calls) { return calls.modify(change); });
    });
  }

  void addDelete() {
    takesIdentifier(add("delete", "Delete an item", [a = arguments_](ProviderCalls& calls) {
      return calls.deleteItem(a->identifier);
    }));
  }

  void addThumbnails() {
    CLI::App* command = group_.add_subcommand("thumbnails", "Thumbnails of a batch of items");
    const auto a = arguments_;
    command->add_option("--size", a->size, "Requested size in pixels")
        ->check(checkSize)
        ->capture_default_str();
    const auto* cancelAfter = command
                                  ->add_option("--cancel-after", a->cancelAfter,
                                               "Cancel from within the N-th per-thumbnail call")
                                  ->check(CLI::PositiveNumber);
    // CLI11 takes "[a,b]" apart where an option takes any number of values; it is an identifier,
    // too. So the option expects more than there will ever be, and is content with those that are
    // there.
    constexpr int beyondAnyNumber = CLI::detail::expected_max_vector_size;
    command->add_option("ID", a->identifiers, "Item identifiers")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->expected(beyondAnyNumber - 1, beyondAnyNumber)
        ->allow_extra_args(false);
    command->callback([this_ = *this, a, cancelAfter] {
      const ThumbnailBatch batch{a->identifiers, parsedSize(a->size).value_or(platform::Size{}),
                                 given(cancelAfter, a->cancelAfter)};
      this_.run([&](ProviderCalls& calls) { return calls.thumbnails(batch); });
    });
  }

  CLI::App& group_;
  std::shared_ptr<Arguments> arguments_;
  int& exitStatus_;
  CLI::Option* container_ = nullptr;
};

}  // namespace

void addProviderCommand(CLI::App& app, int& exitStatus) {
  Group(app, exitStatus).addAll();
}

}  // namespace tulo::cli
