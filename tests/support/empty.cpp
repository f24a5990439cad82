// Keeps the support library non-empty while it has no other sources.
