#pragma once

#include <string>
#include <vector>

/// The commands of the cluster's scheduler, as far as a farm needs them. All throw FarmError: no such command here, or
/// what it says.
namespace ViewTint::Host::Slurm {

/// How many tasks an array may have; Slurm's own default where no cluster can be asked.
int largestArray();

/// Hands a batch script in. Returns the job's number.
long submit(const std::string& script);

void cancel(long job);

/// A job, or one task of an array.
struct Task {
    long job = 0;
    int index = -1;      ///< in its array; -1: none
    std::string state;   ///< Slurm's word: "PENDING", "RUNNING", "COMPLETED", "FAILED", "NODE_FAIL"
    std::string reason;  ///< why it waits, or where it runs

    bool waits() const;
    bool runs() const;
    /// Whether it ended otherwise than well.
    bool failed() const;
};

/// This user's tasks: those in the queue, and those that ended as long as the scheduler remembers them.
std::vector<Task> tasks();

}  // namespace ViewTint::Host::Slurm
