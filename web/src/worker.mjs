import { serve } from './serve.mjs';

serve((rastrel) => ({
  clean: (image, options, progress) => rastrel.clean(image, { ...options, progress }),
  examine: (image) => rastrel.examine(image),
  apply: (image, name, values) => rastrel.apply(image, name, values),
}));
