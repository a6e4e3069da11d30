// What the page says about the server's replies, in words for a person.

export const NAMES = { box: 'Box', loop: 'Loop', stroke: 'Brush', cut: 'Cut', undo: 'Undo', redo: 'Redo', reset: 'Reset' };

function percent(share) {
  const p = share * 100;
  return p > 0 && p < 0.1 ? '<0.1' : p.toFixed(1);
}

function steps(n) {
  return n === 1 ? '1 step' : `${n} steps`;
}

// A step's outcome: {line} for the result line and the log, and {note,
// kind} for a message that must not be missed (kind 'error' or 'info').
export function stepOutcome(step, reply) {
  const name = NAMES[step.kind] + (step.mode ? ` ${step.mode}` : '');
  if (reply.interrupted)
    return {
      line: `${name}: not applied, the session was restored`,
      note: `The worker for this session stopped during this edit (it crashed or was killed). A new one took ` +
        `the session over and replayed its ${steps(reply.restored)}: everything before this edit is as it ` +
        `was, and this edit was not applied. Try it again.`,
      kind: 'error',
    };
  const restored = reply.restored >= 0
    ? `The worker for this session had stopped; a new one took the session over and replayed its ` +
      `${steps(reply.restored)}. `
    : '';
  if (reply.cancelled) return { line: `${name}: cancelled`, note: `${restored}Edit cancelled: the previous result is kept.`, kind: 'info' };
  if (!reply.result)
    return {
      line: `${name}: no result`,
      note: `${restored}The edit gave no result (it ran past the 10-second limit): the previous result is kept.`,
      kind: 'info',
    };
  let line;
  let note = restored;
  if (!reply.canUndo) line = `${name}: the plain photo, no object`;
  else if (reply.share === 0) {
    line = `${name}: nothing selected`;
    note += `${name} left nothing selected: the cut found no object here. Undo brings the previous selection back.`;
  } else line = `${name}: ${Math.round(reply.ms)} ms · object ${percent(reply.share)}% of the photo`;
  return note ? { line, note, kind: 'info' } : { line };
}

export function placesText(inUse, workers) {
  return `Editing places in use: ${inUse} of ${workers}.`;
}
