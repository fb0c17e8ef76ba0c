// On Windows this makes the ids that later headers declare be defined; here they always are.
#pragma once
