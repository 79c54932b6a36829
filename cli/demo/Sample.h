// The files of the demo's account, as a person might have them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

namespace tulo::cli::demo {

// Paths below the account's folder that the demo speaks of.
namespace sample {
inline const std::string report = "Documents/Report.pdf";
inline const std::string contract = "Documents/Contract.txt";
inline const std::string documents = "Documents";
inline const std::string budget = "Documents/Budget.csv";
inline const std::string letter = "Documents/Letters/Landlord.txt";
inline const std::string ideas = "Notes/Ideas.md";
inline const std::string video = "Videos/Holiday.mp4";
inline const std::string picture = "Pictures/Sunrise.png";
inline const std::string drawing = "Pictures/Logo.svg";
}  // namespace sample

struct SampleCounts {
  std::int64_t files = 0;
  std::int64_t folders = 0;
  std::int64_t bytes = 0;
};

// Fills the folder, which exists and is empty. `archived` small files are spread over the years and
// months of an archive. `betweenFiles` is called often and may throw to end it.
// Throws std::runtime_error for a file that cannot be written.
SampleCounts makeSample(const std::filesystem::path& folder, int archived,
                        const std::function<void()>& betweenFiles);

}  // namespace tulo::cli::demo
