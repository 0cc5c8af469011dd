#pragma once

// Log line layouts. The daemon installs the journal layout; the other two are for running it by
// hand in a terminal.
namespace MessagePattern {
void installJournalPattern();
void installTerminalPattern();
void installPlainPattern();
}
