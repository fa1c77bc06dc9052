// Named in the build as the shared test helpers library's own source; the helpers live beside it.
