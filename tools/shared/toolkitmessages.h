// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// The tools' stderr carries their own lines only, for users and scripts that
// read it: messages of Qt and its platform plugins (such as the note that
// XDG_RUNTIME_DIR is not set, which every start as root or over ssh prints)
// are dropped. A fatal one still ends the program, with one line in the
// tool's form. Call before the application object is made.
namespace ToolkitMessages
{

void keepOffStderr(const char *tool);

} // namespace ToolkitMessages
