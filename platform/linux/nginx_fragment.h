// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include "platform/linux/file.h"

namespace ARDV::Platform {

/// A fragment of nginx's configuration that is being changed: its file, and the way back. While one of these is open, no
/// other process or thread changes a fragment. A change that is neither kept nor undone when this object goes is undone;
/// one that its process left behind when it died, when any fragment is opened next.
class NginxFragment {
public:
    explicit NginxFragment(std::string name);
    NginxFragment(const NginxFragment&) = delete;
    NginxFragment& operator=(const NginxFragment&) = delete;
    ~NginxFragment();

    /// Whether this can be the name of a fragment.
    static bool IsName(std::string_view name);

    /// The path of the fragment's file.
    static std::string PathOf(std::string_view name);

    /// Waits for the right to change fragments; first of all. The folder is made if it's missing, and what was
    /// left half changed, of any name, is as it was before. ARDV_ERR_UNSAFE_FILE where others may write to the folder or
    /// to the one above.
    Failure Open();

    /// Whether it's there.
    bool IsThere() const;

    /// Whether it's there with exactly this text.
    bool Is(std::string_view text) const;

    /// Puts a text in its place, or removes what is there. What was there, or that there was nothing, is kept aside until
    /// one of the next two. Either makes it pending.
    Failure Put(std::string_view text);
    Failure Remove();

    /// Ends the change: all is as it was, or what was there is dropped. Where `Keep` fails the change isn't ended. Where
    /// `Undo` fails the change is in place, and pending.
    Failure Undo();
    Failure Keep();

    /// Whether a change was kept that isn't in force yet, as far as is known.
    bool IsPending() const;
    void ClearPending() const;

private:
    bool Exists(const std::string& name) const;
    Failure LinkAside() const;
    Failure NoteNothing() const;
    Failure RestoreAll() const;
    Failure Restore(const std::string& name) const;
    Failure BringBack(const std::string& aside, const std::string& name) const;
    Failure Delete(const std::string& name) const;
    Failure FlushFolder() const;
    void SetPending() const;

    FilePlace place_;
    FileDescriptor lock_;
    bool isChanged_ = false;
    bool wasPending_ = false;
};

}  // namespace ARDV::Platform
